#pragma once

#include <camclock/TimePoint.h>

namespace camclock::receiver {

/// The host's time at the counter's full resolution.
///
/// It is the clock of `Utilities::GetTime`, with the same anchor and the same counter, without the rounding
/// to whole milliseconds: the two never differ by more than half a millisecond. Times of reception are taken
/// with it, since a rounded one would add up to half a millisecond of noise to every latency that the library
/// measures.
class HostClock {
public:
    /// Anchors both this clock and the library's to the system clock. Call it once, before anything runs.
    static void Anchor();

    /// The host's time now, in ticks of 100 ns, truncated. Any thread.
    static TimePoint Now();
};

}  // namespace camclock::receiver
