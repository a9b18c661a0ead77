#pragma once

#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/views/Statistics.h"

#include <cstdint>
#include <optional>

namespace camclock::app {

/// What the table and the summary tell of one stream, gathered from its rows. One thread.
class StreamStatistics {
public:
    void Add(const FrameRow& row);

    std::uint64_t Frames() const { return frames_; }

    /// Nothing but zeros before the first frame.
    const FrameRow& Last() const { return last_; }

    /// Frames a second over the last `frames` of them, by their times of reception; 0 for fewer than two.
    double FrameRate(std::size_t frames) const;

    /// Payload over the last `frames` frames, in kbit/s; 0 for fewer than two.
    double BitRate_kbit(std::size_t frames) const;

    /// From the first frame's reception to the last one's.
    double Seconds() const;

    /// Share (0 to 1) of good trust among the frames since the first sender report; empty when there are
    /// none.
    std::optional<double> GoodShare() const;

    /// Percentile of `arrived_host` - `captured_host` over the newest `frames` frames since the first report,
    /// in ms; empty when there are none.
    std::optional<double> Latency_ms(double share, std::size_t frames) const;

    /// Interarrival jitter of the frames (RFC 3550, 6.4.1, applied to their first packets), in ms.
    double Jitter_ms() const { return jitter_ms_; }

    /// What the library estimates the clock difference to be from the latencies, before it takes the mean
    /// latency off: the median of the newest 51 of `arrived_host` - `captured_cam`, in ms; empty without
    /// reports.
    std::optional<double> ClockLatency_ms() const;

    /// The live table looks back this far: ten seconds of a usual camera.
    static constexpr std::size_t kRecent = 250;
    /// The summary looks back this far: more than six minutes.
    static constexpr std::size_t kKept = 10'000;

private:
    void _UpdateJitter(const FrameRow& row);

    std::uint64_t frames_ = 0;
    std::uint64_t synced_ = 0;
    std::uint64_t good_ = 0;
    double jitter_ms_ = 0.0;
    TimePoint first_host_{};
    FrameRow last_;
    RecentValues receptions_s_{kKept};  // since the first one
    RecentValues sizes_{kKept};         // bytes
    RecentValues latencies_ms_{kKept};
    RecentValues clockLatencies_ms_{51};
};

}  // namespace camclock::app
