#pragma once

#include <chrono>
#include <cstdint>
#include <ratio>

namespace camclock {

/// The library's unit of time: 100 ns, the native resolution of the system clock on 64-bit Windows.
/// One millisecond is 10,000 ticks, one microsecond ten.
using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

/// A point in time: ticks since 1970-01-01 00:00:00 UTC. Which clock it was read from, the camera's or the
/// host's, is told by the name of what holds it: `_cam` or `_host`.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, Ticks>;

/// "Not yet set": the smallest representable time. It is compared, never subtracted.
inline constexpr TimePoint kNotYetSet = (TimePoint::min)();

}  // namespace camclock
