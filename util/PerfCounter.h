#pragma once

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
    static std::int64_t Read();

    /// Counts per second.
    static std::int64_t Frequency();

    /// From now on `Read` asks `source`, which counts at `frequency`.
    static void Replace(Source source, std::int64_t frequency);

    /// Back to the system's counter.
    static void Restore();
};

}  // namespace camclock
