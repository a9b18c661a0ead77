#include "logging/TimeText.h"

#include "util/Arithmetic.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace camclock {
namespace {

constexpr std::string_view kInvalid = "Invalid timepoint";

/// The last second that every runtime of the target converts, some hours into the year 3001. Other platforms
/// stop there too, so that a log reads the same everywhere.
constexpr std::int64_t kLastSecond = 32'535'244'799;

bool BreakDownUtc(std::int64_t seconds, std::tm& parts) {
    if (seconds < 0 || seconds > kLastSecond)
        return false;
#if defined(_WIN32)
    const __time64_t time = seconds;
    return _gmtime64_s(&parts, &time) == 0;
#else
    const auto time = static_cast<std::time_t>(seconds);
    return gmtime_r(&time, &parts) != nullptr;
#endif
}

bool BreakDownLocal(std::int64_t seconds, std::tm& parts) {
#if defined(_WIN32)
    const __time64_t time = seconds;
    const std::tm* const local = _localtime64(&time);  // a buffer of the calling thread's own
    if (local == nullptr)
        return false;
    parts = *local;
    return true;
#else
    const auto time = static_cast<std::time_t>(seconds);
    return localtime_r(&time, &parts) != nullptr;
#endif
}

struct SecondsAndMilliseconds {
    std::int64_t seconds;
    std::int64_t milliseconds;  // has the sign of the time
};

SecondsAndMilliseconds Split(TimePoint time) {
    const std::int64_t ticks = time.time_since_epoch().count();
    const std::int64_t milliseconds = ticks % kTicksPerSecond / kTicksPerMillisecond;
    return {(ticks - milliseconds * kTicksPerMillisecond) / kTicksPerSecond, milliseconds};
}

/// "%02d" or "%03d" of a number that needs no more digits.
void PutDigits(char* place, int digits, int value) {
    while (digits-- > 0) {
        place[digits] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

/// ".%03d" of the milliseconds, -999 ... 999; returns the end. The minus takes one of the three places.
char* PutMilliseconds(char* place, std::int64_t milliseconds) {
    *place++ = '.';
    const int value = static_cast<int>(milliseconds < 0 ? -milliseconds : milliseconds);
    int digits = 3;
    if (milliseconds < 0) {
        *place++ = '-';
        digits = value < 100 ? 2 : 3;
    }
    PutDigits(place, digits, value);
    return place + digits;
}

/// The text of the last second that this thread wrote. Log lines come in order, so the calendar is asked once
/// a second, not once a line.
struct LastSecond {
    std::int64_t seconds =
        kNotYetSet.time_since_epoch().count();  // no time's seconds, not even one before 1970
    std::array<char, 19> text{};                // 2031-04-05 14:07:09
};

}  // namespace

std::string TimePointToText(TimePoint time, std::string format, bool withMilliseconds) {
    const SecondsAndMilliseconds split =
        withMilliseconds ? Split(time)
                         : SecondsAndMilliseconds{time.time_since_epoch().count() / kTicksPerSecond, 0};
    std::tm parts{};
    if (!BreakDownUtc(split.seconds, parts))
        return std::string(kInvalid);
    std::array<char, 100> buffer;
    std::string text(buffer.data(), std::strftime(buffer.data(), buffer.size(), format.c_str(), &parts));
    if (withMilliseconds) {
        std::array<char, 8> milliseconds;
        text.append(milliseconds.data(), PutMilliseconds(milliseconds.data(), split.milliseconds));
    }
    return text;
}

char* WriteLogTime(char* place, TimePoint time) {
    thread_local LastSecond last;
    const SecondsAndMilliseconds split = Split(time);
    if (split.seconds != last.seconds) {
        std::tm parts{};
        if (!BreakDownUtc(split.seconds, parts))
            return std::copy_n(kInvalid.data(), kInvalid.size(), place);
        last.seconds = split.seconds;
        char* const text = last.text.data();
        PutDigits(text, 4, parts.tm_year + 1900);
        text[4] = text[7] = '-';
        PutDigits(text + 5, 2, parts.tm_mon + 1);
        PutDigits(text + 8, 2, parts.tm_mday);
        text[10] = ' ';
        PutDigits(text + 11, 2, parts.tm_hour);
        text[13] = text[16] = ':';
        PutDigits(text + 14, 2, parts.tm_min);
        PutDigits(text + 17, 2, parts.tm_sec);
    }
    return PutMilliseconds(std::copy(last.text.begin(), last.text.end(), place), split.milliseconds);
}

DurationPair NormalizeDuration(DurationPair duration) {
    // The carry, rounded down: microseconds lie within 32 bits, so it is a few thousand at most.
    constexpr std::int32_t kMicrosecondsPerSecond = 1'000'000;
    std::int32_t carry = duration.microseconds / kMicrosecondsPerSecond;
    std::int32_t rest = duration.microseconds % kMicrosecondsPerSecond;
    if (rest < 0) {
        rest += kMicrosecondsPerSecond;
        --carry;
    }
    return {static_cast<std::int32_t>(static_cast<std::uint32_t>(duration.seconds) +
                                      static_cast<std::uint32_t>(carry)),
            rest};
}

std::string DurationToText(DurationPair duration) {
    const std::int64_t seconds = duration.seconds;
    const std::int64_t magnitude = seconds < 0 ? -seconds : seconds;
    std::tm parts{};
    // West of Greenwich a short span lies before 1970, which the target cannot break down: UTC serves then.
    if (!BreakDownLocal(magnitude, parts))
        BreakDownUtc(magnitude, parts);
    std::array<char, 20> timeOfDay;
    timeOfDay[std::strftime(timeOfDay.data(), timeOfDay.size(), seconds < 0 ? "-%H:%M:%S" : "%H:%M:%S",
                            &parts)] = '\0';
    std::array<char, 12> microseconds;
    std::snprintf(microseconds.data(), microseconds.size(), "%06d", static_cast<int>(duration.microseconds));
    // The text has always had room for 19 characters; only a pair that was not normalised reaches them.
    return (std::string(timeOfDay.data()) + '.' + microseconds.data()).substr(0, 19);
}

}  // namespace camclock
