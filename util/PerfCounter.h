#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace camclock {

/// The one reading of the system's high-resolution counter. Tests put a counter of their own in its place.
///
/// Every operation may be called from any thread; `Replace` and `Restore` do
/// not overlap a `Read` that matters.
class PerfCounter {
public:
    using Source = std::int64_t (*)();

    /// Counts since some fixed instant; never runs backwards.
    static std::int64_t Read() {
        const Source source = source_.load(std::memory_order_relaxed);
        return source == nullptr ? _ReadSystem() : source();
    }

    /// Counts per second.
    static std::int64_t Frequency() {
        return source_.load(std::memory_order_acquire) == nullptr  // with the frequency that goes with it
                   ? _SystemFrequency()
                   : frequency_.load(std::memory_order_relaxed);
    }

    /// From now on `Read` asks `source`, which counts at `frequency`.
    static void Replace(Source source, std::int64_t frequency) {
        frequency_ = frequency;
        source_ = source;
    }

    /// Back to the system's counter.
    static void Restore() { source_ = nullptr; }

private:
#if defined(_WIN32)
    static std::int64_t _ReadSystem();
    static std::int64_t _SystemFrequency();
#else
    static std::int64_t _ReadSystem() {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    static constexpr std::int64_t _SystemFrequency() {
        return 1'000'000'000;
    }
#endif

    // Atomic, since a test may replace the counter while a worker of another object reads it.
    inline static std::atomic<Source> source_{nullptr};  // none: the system's
    inline static std::atomic<std::int64_t> frequency_{0};
};

}  // namespace camclock
