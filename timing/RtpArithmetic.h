#pragma once

#include "util/Arithmetic.h"

#include <cstdint>

namespace camclock {

// The arithmetic of RTP and NTP time stamps: pure, and defined for every input.

/// From `from` to `to` in RTP ticks. RTP time wraps every 2^32 ticks, 13 h 15 min at 90 kHz: the nearer way
/// round is meant (RFC 3550, 5.1).
constexpr std::int32_t RtpDistance(std::uint32_t from, std::uint32_t to) {
    return static_cast<std::int32_t>(to - from);
}

/// RTP ticks at `rate` Hz in microseconds, truncated toward zero. A rate of 0 gives the most negative value.
constexpr std::int64_t RtpTicksToMicroseconds(std::int32_t distance, double rate) {
    return rate == 0.0 ? (std::numeric_limits<std::int64_t>::min)()
                       : TruncateToInt64(static_cast<double>(distance) / rate * 1'000'000.0);
}

/// `time`, the time of `fromRtp`, moved to `toRtp`.
constexpr TimePoint MovedByRtp(TimePoint time, std::uint32_t fromRtp, std::uint32_t toRtp, double rate) {
    return MovedByMicroseconds(time, RtpTicksToMicroseconds(RtpDistance(fromRtp, toRtp), rate));
}

/// Seconds from the NTP epoch, 1900-01-01, to 1970-01-01 (RFC 868).
inline constexpr std::int64_t kNtpToUnixSeconds = 2'208'988'800;

/// An NTP time stamp of era 0 (RFC 5905, 6) as a time point, in whole microseconds.
///
/// Deliberate: the factor is 10^6 / 2^32 rounded to eight digits, so half a second gives 499,999 us
/// (NtpTime.HalfASecondLosesAMicrosecondToTheFactor).
constexpr TimePoint NtpToTimePoint(std::uint32_t seconds, std::uint32_t fraction) {
    constexpr double kMicrosecondsPerUnit = 0.00023283064;
    const std::int64_t microseconds = (static_cast<std::int64_t>(seconds) - kNtpToUnixSeconds) * 1'000'000 +
                                      TruncateToInt64(static_cast<double>(fraction) * kMicrosecondsPerUnit);
    return TimePoint(Ticks(microseconds * kTicksPerMicrosecond));
}

}  // namespace camclock
