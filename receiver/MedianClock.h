#pragma once

#include "receiver/FrameAssembler.h"
#include "receiver/RecordPool.h"
#include "receiver/ReportCheck.h"

#include <camclock/TimePoint.h>
#include <camclock/receiver/Settings.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace camclock {
class TimeFilter;
class TimeFilterInstance;
}  // namespace camclock

namespace camclock::receiver {

/// The library's own answer for the frames of one epoch: a `TimeFilter` and an instance, asked as they want
/// to be asked. One call a frame, the first one after a report with a `D` seeded from itself, nothing that
/// runs back.
///
/// One object an epoch. Its end joins the library's threads, which takes some 11 ms, more while `D` is
/// measured. One thread at a time.
class MedianClock {
public:
    struct Answer {
        TimePoint captured_host{};  ///< not after the arrival
        TimePoint captured_cam{};
        std::chrono::milliseconds D{0};  ///< as used
        bool replaced = false;           ///< the estimate lay after the arrival
    };

    /// A frame as the library takes it.
    struct Timed {
        Assembled frame;
        std::uint32_t ssrc = 0;
        bool synced = false;  ///< there have been reports
    };

    /// What is known beforehand.
    struct Setup {
        const Settings& settings;
        const std::string& cameraName;
        const std::string& streamId;
        std::uint32_t rate_Hz;
        std::chrono::milliseconds meanLatency;
    };

    /// Starts the library's threads; throws `std::system_error` when it cannot.
    explicit MedianClock(const Setup& setup);
    ~MedianClock();

    MedianClock(const MedianClock&) = delete;
    MedianClock& operator=(const MedianClock&) = delete;

    /// A frame of the time before the first report, the only one: it is where the library's stable time
    /// stamps begin.
    void Begin(const Timed& timed);

    void TakeReport(const Report& report);

    /// A frame whose stamp is the newest so far; there has been a report. `measured`: the clock difference
    /// that somebody else measures.
    Answer Take(const Timed& timed, std::optional<std::chrono::milliseconds> measured);

    /// A frame whose stamp runs back: mapped, not learned from. There has been a report.
    Answer Map(std::uint32_t rtp_ts, TimePoint arrival_host);

    /// Measures the clock difference with ICMP from now on; `expectedD` serves until then. Throws
    /// `std::system_error` when no thread can be started. Once.
    void Measure(const Settings& settings, std::optional<std::chrono::milliseconds> expectedD);

    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    /// The clock difference that this one has measured with ICMP.
    std::optional<std::chrono::milliseconds> MeasuredD() const;
    std::chrono::microseconds MeasuredUncertainty() const;

    /// Measuring was asked for, and has ended without success.
    bool ProbeGaveUp() const;

    std::chrono::milliseconds D() const;

private:
    void _Seed(TimePoint captured_cam, TimePoint arrival_host);
    void _Update(const Timed& timed);

    const std::uint32_t rate_Hz_;
    std::chrono::milliseconds meanLatency_;
    bool probes_ = false;
    bool seeded_ = false;  // the library's `D` is one of this epoch
    Report report_;        // the newest one that the library has
    RecordPool records_;
    std::unique_ptr<TimeFilter> camera_;
    std::shared_ptr<TimeFilterInstance> stream_;  // goes before its camera
};

}  // namespace camclock::receiver
