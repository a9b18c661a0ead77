#pragma once

#include <camclock/TimePoint.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace camclock::receiver {

/// Where the streams of a camera keep their presentation time stamps together. Each stream writes down the
/// time of capture and the stamp of its last frame; whoever begins an epoch takes its first stamp from there,
/// by the host's time that passed.
///
/// Any thread.
class PtsBoard {
public:
    /// One frame: stamped `pts` at `rate_Hz`, captured then.
    struct Mark {
        TimePoint captured_host{};
        TimePoint arrived_host{};
        std::int64_t pts = 0;
        std::uint32_t rate_Hz = 0;
    };

    /// A place for a stream, until it leaves.
    std::size_t Join();
    void Leave(std::size_t place);

    void Write(std::size_t place, const Mark& mark);

    /// The stamp of a frame that was captured and arrived then, in ticks of `rate_Hz`: from the mark of a
    /// stream that runs, else from the stream's own, else from the newest there is; 0 for the camera's first
    /// frame.
    std::int64_t Begin(std::size_t place, TimePoint captured_host, TimePoint arrived_host,
                       std::uint32_t rate_Hz);

private:
    struct Place {
        bool taken = false;
        std::optional<Mark> mark;
    };

    std::mutex mutex_;  // guards all below
    std::vector<Place> places_;
    std::optional<Mark> gone_;  // the newest of those that left
};

}  // namespace camclock::receiver
