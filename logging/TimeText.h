#pragma once

#include <camclock/TimePoint.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace camclock {

/// A signed span; both fields carry their own sign.
struct DurationPair {
    std::int32_t seconds;
    std::int32_t microseconds;
};

/// `time` in UTC, formatted by `strftime`'s rules (99 characters at most, else nothing), followed by the
/// milliseconds as ".042" when wanted; ticks below a millisecond are dropped. "Invalid timepoint" for whole
/// seconds before 1970 or past the calendar's reach, which ends in the year 3001 on every platform.
std::string TimePointToText(TimePoint time, std::string format, bool withMilliseconds);

/// What every logged time looks like: 2031-04-05 14:07:09.042, always UTC.
inline constexpr const char* kLogTimeFormat = "%Y-%m-%d %H:%M:%S";

/// Writes what `TimePointToText(time, kLogTimeFormat, true)` gives, without a closing zero, to a place with
/// room for `kLongestLogTime` characters; returns the end.
char* WriteLogTime(char* place, TimePoint time);
inline constexpr std::size_t kLongestLogTime = 32;

/// Carries the microseconds into the seconds, so that they lie in 0 ... 999,999.
DurationPair NormalizeDuration(DurationPair duration);

/// The span as a time of day, "HH:MM:SS.uuuuuu", with a minus in front for negative seconds.
///
/// Deliberate: the seconds are broken down in the host's own time zone, whose offset is therefore added: at
/// UTC+1 five seconds read 01:00:05.000000 (DurationToText.AddsTheZonesOffset).
std::string DurationToText(DurationPair duration);

}  // namespace camclock
