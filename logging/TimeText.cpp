#include "logging/TimeText.h"

#include "util/Arithmetic.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace camclock {
namespace {

constexpr const char* kInvalid = "Invalid timepoint";

/// The last second that the target's UTC conversion accepts, some hours into the year 3001. Other platforms
/// stop there too, so that a log reads the same everywhere.
constexpr std::int64_t kLastSecond = 32'535'291'599;

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

void AppendMilliseconds(std::string& text, std::int64_t milliseconds) {
    std::array<char, 50> buffer;
    std::snprintf(buffer.data(), buffer.size(), ".%03d", static_cast<int>(milliseconds));
    text += buffer.data();
}

void PutTwoDigits(char* place, int value) {
    place[0] = static_cast<char>('0' + value / 10);
    place[1] = static_cast<char>('0' + value % 10);
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
        return kInvalid;
    std::array<char, 100> buffer;
    std::string text(buffer.data(), std::strftime(buffer.data(), buffer.size(), format.c_str(), &parts));
    if (withMilliseconds)
        AppendMilliseconds(text, split.milliseconds);
    return text;
}

void AppendLogTime(std::string& text, TimePoint time) {
    thread_local LastSecond last;
    const SecondsAndMilliseconds split = Split(time);
    if (split.seconds != last.seconds) {
        std::tm parts{};
        if (!BreakDownUtc(split.seconds, parts)) {
            text += kInvalid;
            return;
        }
        last.seconds = split.seconds;
        char* const place = last.text.data();
        const int year = parts.tm_year + 1900;
        PutTwoDigits(place, year / 100);
        PutTwoDigits(place + 2, year % 100);
        place[4] = place[7] = '-';
        PutTwoDigits(place + 5, parts.tm_mon + 1);
        PutTwoDigits(place + 8, parts.tm_mday);
        place[10] = ' ';
        PutTwoDigits(place + 11, parts.tm_hour);
        place[13] = place[16] = ':';
        PutTwoDigits(place + 14, parts.tm_min);
        PutTwoDigits(place + 17, parts.tm_sec);
    }
    text.append(last.text.data(), last.text.size());
    if (split.milliseconds < 0) {
        AppendMilliseconds(text, split.milliseconds);  // the last second before 1970
        return;
    }
    const auto milliseconds = static_cast<int>(split.milliseconds);
    const char digits[4] = {'.', static_cast<char>('0' + milliseconds / 100),
                            static_cast<char>('0' + milliseconds / 10 % 10),
                            static_cast<char>('0' + milliseconds % 10)};
    text.append(digits, sizeof digits);
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
