#pragma once

#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/TestCamera.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app {

/// Sizes of errors in ms, without their signs.
struct ErrorFigures {
    double median = 0.0;
    double p95 = 0.0;
    double p99 = 0.0;
    double max = 0.0;
};

/// What the demo found out about one transport.
struct DemoResult {
    std::string transport;
    std::uint64_t frames = 0;    ///< received
    std::uint64_t compared = 0;  ///< of these, compared with the truth
    std::int64_t meanLatency_ms = 0;
    ErrorFigures camclock;   ///< TOC_host by the median of the latencies
    ErrorFigures precise;    ///< by the floor line
    ErrorFigures reception;  ///< the time of reception taken for the time of capture
    ErrorFigures camera;     ///< the camera's own time taken for the host's
    double goodShare = 0.0;  ///< 0 to 1, of the frames compared
    double D_found_ms = 0.0;
    double D_true_ms = 0.0;  ///< both at the last frame compared
};

/// What a real camera's owner measures once: the latency of the usual and of the fastest frame.
struct MeasuredLatency {
    std::chrono::milliseconds mean{0};
    std::chrono::microseconds least{0};
};

/// Compares frames with the truth. Measures the mean latency first, unless it is given: over the first frames
/// with a sender report, as one would do once with a real camera that films a clock. Until it has told them,
/// the receiver's own settings hold. One thread.
class DemoComparison {
public:
    /// The mean latency is measured over this many frames: two seconds.
    static constexpr std::size_t kMeasured = 50;
    /// And so many more pass before the comparison starts, until the library's window of 51 latencies is
    /// full.
    static constexpr std::size_t kSettling = 51;

    DemoComparison(std::string transport, std::optional<std::chrono::milliseconds> meanLatency);

    /// Takes the next frame. When it is the one that completes the measurement, returns the latencies to set.
    std::optional<MeasuredLatency> Add(const FrameRow& row, const TestCamera::Truth& truth);

    /// Counts a frame whose truth is not known.
    void AddUnknown() { ++result_.frames; }

    DemoResult Result() const;

private:
    DemoResult result_;
    bool measuring_;
    std::size_t settling_ = kSettling;
    std::vector<double> latencies_ms_;
    std::vector<double> lineLatencies_ms_;  // of the floor line in place of the arrivals
    std::vector<double> camclock_ms_;
    std::vector<double> precise_ms_;
    std::vector<double> reception_ms_;
    std::vector<double> camera_ms_;
    std::uint64_t good_ = 0;
};

/// The closing table of the demo, as lines of 60 characters at most.
std::vector<std::string> DemoTable(const std::vector<DemoResult>& results);

/// The same as JSON, one object for each transport.
std::string DemoJson(const std::vector<DemoResult>& results);

}  // namespace camclock::app
