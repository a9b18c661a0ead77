#pragma once

#include <camclock/TimePoint.h>

#include <cstdint>
#include <limits>

namespace camclock {

// Arithmetic with a defined result for every input. Sums, differences and products of 64-bit counts wrap
// around in two's complement; they are formed unsigned, since a signed overflow has no defined result in C++.

constexpr std::int64_t WrappingAdd(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

constexpr std::int64_t WrappingSubtract(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

constexpr std::int64_t WrappingMultiply(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

/// `value` truncated toward zero. Not-a-number and what lies outside 64 bits become the most negative value,
/// as the conversion instruction of 64-bit x86 gives it.
constexpr std::int64_t TruncateToInt64(double value) {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    return value >= -kTwoTo63 && value < kTwoTo63 ? static_cast<std::int64_t>(value)
                                                  : (std::numeric_limits<std::int64_t>::min)();
}

inline constexpr std::int64_t kTicksPerMillisecond = 10'000;
inline constexpr std::int64_t kTicksPerMicrosecond = 10;
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;

/// From `from` to `to`, in ticks.
constexpr std::int64_t TicksBetween(TimePoint from, TimePoint to) {
    return WrappingSubtract(to.time_since_epoch().count(), from.time_since_epoch().count());
}

/// `time` moved by `ticks`.
constexpr TimePoint MovedBy(TimePoint time, std::int64_t ticks) {
    return TimePoint(Ticks(WrappingAdd(time.time_since_epoch().count(), ticks)));
}

constexpr TimePoint MovedByMilliseconds(TimePoint time, std::int64_t milliseconds) {
    return MovedBy(time, WrappingMultiply(milliseconds, kTicksPerMillisecond));
}

constexpr TimePoint MovedByMicroseconds(TimePoint time, std::int64_t microseconds) {
    return MovedBy(time, WrappingMultiply(microseconds, kTicksPerMicrosecond));
}

}  // namespace camclock
