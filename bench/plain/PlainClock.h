#pragma once

#include <camclock/TimePoint.h>

#include <chrono>
#include <cstdint>
#include <mutex>

namespace camclock::bench {

/// The process clock as one would write it at first.
class PlainClock {
public:
    // Not inline: the clock of a library is a call away from who asks for the time.
    [[gnu::noinline]] TimePoint GetTime() {
        const std::lock_guard<std::mutex> guard(mutex_);
        const std::int64_t count = std::chrono::steady_clock::now().time_since_epoch().count();
        const auto frequency = static_cast<double>(std::chrono::steady_clock::period::den);
        const auto milliseconds =
            static_cast<std::int64_t>(static_cast<double>(count - reference_) / frequency * 1000.0 + 0.5);
        return base_ + std::chrono::milliseconds(milliseconds);
    }

private:
    std::mutex mutex_;
    TimePoint base_{};
    std::int64_t reference_ = std::chrono::steady_clock::now().time_since_epoch().count();
};

}  // namespace camclock::bench
