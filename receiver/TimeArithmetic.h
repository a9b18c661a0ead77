#pragma once

#include <camclock/TimePoint.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

namespace camclock::receiver {

// Sums and differences of times that strangers name: at the ends of the range they stay there.

/// `a` + `b`, at the ends of the range where it would leave it.
constexpr std::int64_t SaturatingAdd(std::int64_t a, std::int64_t b) {
    constexpr std::int64_t kMost = (std::numeric_limits<std::int64_t>::max)();
    constexpr std::int64_t kLeast = (std::numeric_limits<std::int64_t>::min)();
    if (b > 0 && a > kMost - b)
        return kMost;
    if (b < 0 && a < kLeast - b)
        return kLeast;
    return a + b;
}

constexpr std::int64_t SaturatingNegate(std::int64_t a) {
    return a == (std::numeric_limits<std::int64_t>::min)() ? (std::numeric_limits<std::int64_t>::max)() : -a;
}

/// A time moved by a duration, which is converted to ticks as it is: give no longer one than 29,000 years.
constexpr TimePoint Moved(TimePoint time, Ticks by) {
    return TimePoint(Ticks(SaturatingAdd(time.time_since_epoch().count(), by.count())));
}

constexpr Ticks Elapsed(TimePoint from, TimePoint to) {
    return Ticks(
        SaturatingAdd(to.time_since_epoch().count(), SaturatingNegate(from.time_since_epoch().count())));
}

/// A duration in ticks, at the ends of their range where it would leave it.
template <class Rep, class Period>
constexpr Ticks ToTicks(std::chrono::duration<Rep, Period> duration) {
    using Duration = std::chrono::duration<Rep, Period>;
    constexpr Duration kMost = std::chrono::duration_cast<Duration>((Ticks::max)());
    constexpr Duration kLeast = std::chrono::duration_cast<Duration>((Ticks::min)());
    return duration > kMost ? (Ticks::max)() : duration < kLeast ? (Ticks::min)() : Ticks(duration);
}

constexpr double Seconds(Ticks time) {
    return static_cast<double>(time.count()) * 1e-7;
}

/// To the nearest whole number, at the ends of the range where it would leave it; not-a-number gives 0.
inline std::int64_t ToInt64(double value) {
    if (!(value == value))
        return 0;
    if (value >= 9.2e18)
        return (std::numeric_limits<std::int64_t>::max)();
    if (value <= -9.2e18)
        return (std::numeric_limits<std::int64_t>::min)();
    return std::llround(value);
}

/// From one RTP stamp to another in ticks of their clock, over any number of wraps (one every 2^32 ticks):
/// that number is taken which fits the time that passed on the host best. Without a wait of half a wrap or
/// more it is the nearer way round (RFC 3550, 5.1).
inline std::int64_t RtpElapsed(std::uint32_t from, std::uint32_t to, std::uint32_t rate_Hz,
                               Ticks elapsed_host) {
    constexpr double kWrap = 4294967296.0;
    const auto nearest = static_cast<std::int32_t>(to - from);
    const double passed = Seconds(elapsed_host) * static_cast<double>(rate_Hz);
    if (passed < kWrap / 2 + static_cast<double>(nearest))
        return nearest;
    const double wraps = std::floor((passed - static_cast<double>(nearest)) / kWrap + 0.5);
    // A century at any rate stays far within 64 bits.
    return nearest + static_cast<std::int64_t>((std::min)(wraps, 1e9)) * (std::int64_t{1} << 32);
}

}  // namespace camclock::receiver
