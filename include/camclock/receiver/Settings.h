#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace camclock::receiver {

/// Whose answer `Frame::captured_host` is.
enum class Estimator {
    kMedian,     ///< the library's own: the median of the latest latencies, or the measured clock difference
    kFloorLine,  ///< the line on which the fastest frames arrive; needs no sender reports
};

/// Settings of one camera.
struct Settings {
    std::chrono::milliseconds meanLatency{30};  ///< from capture to arrival of the usual frame
    std::optional<std::chrono::microseconds>
        leastLatency;  ///< of the fastest frame; `meanLatency` when not set
    Estimator estimator = Estimator::kMedian;

    /// What the camera itself takes from capture to sending, least and most: gives `Frame::bound`.
    std::optional<std::pair<std::chrono::microseconds, std::chrono::microseconds>> cameraDelay;

    /// Host's clock less camera's, when known beforehand; what probing falls back to. Unused without
    /// `icmpHost`.
    std::optional<std::chrono::milliseconds> expectedDifference;

    std::chrono::milliseconds packetTimeOut{10'000};  ///< silence from which a stream counts as silent
    std::chrono::milliseconds reportTimeOut{
        30'000};  ///< the same for sender reports, where they are required
    bool requireReports = false;

    std::string icmpHost;  ///< not empty: measure `D` with ICMP timestamps (RFC 792) to this host
    std::chrono::seconds icmpPoll{60};  ///< from one measurement to the next

    std::string timingLogDirectory;  ///< one timing log an epoch is written there; empty: none
    std::string probeLogDirectory;   ///< where the probe log is written; empty: none
};

}  // namespace camclock::receiver
