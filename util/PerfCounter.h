#pragma once

#include <atomic>
#include <cstdint>

namespace camclock {

/// The one reading of the system's high-resolution counter. Tests put a counter of their own in its place.
///
/// Every operation may be called from any thread; `Replace` and `Restore` do not overlap a `Read` that
/// matters.
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
        const std::int64_t frequency = frequency_.load(std::memory_order_relaxed);
        return frequency == 0 ? _AskFrequency() : frequency;
    }

    /// From now on `Read` asks `source`, which counts at `frequency`.
    static void Replace(Source source, std::int64_t frequency);

    /// Back to the system's counter.
    static void Restore();

private:
    static std::int64_t _ReadSystem();
    static std::int64_t _AskFrequency();

    // Atomic, since a test may replace the counter while a worker of another object reads it.
    static inline std::atomic<Source> source_{nullptr};     // null: the system's counter
    static inline std::atomic<std::int64_t> frequency_{0};  // 0: not asked for yet
};

}  // namespace camclock
