#pragma once

#include <camclock/TimePoint.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <string>

namespace camclock::bench {

/// The text of a time, straight from the calendar functions.
inline std::string PlainTimeText(TimePoint time, const std::string& format) {
    const std::int64_t ticks = time.time_since_epoch().count();
    const std::int64_t milliseconds = (ticks - ticks / 10'000'000 * 10'000'000) / 10'000;
    const auto seconds = static_cast<std::time_t>((ticks - milliseconds * 10'000) / 10'000'000);
    std::tm parts{};
    if (seconds < 0 || gmtime_r(&seconds, &parts) == nullptr)
        return "Invalid timepoint";
    std::array<char, 100> text{};
    std::strftime(text.data(), text.size(), format.c_str(), &parts);
    std::array<char, 50> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(milliseconds));
    return std::string(text.data()) + fraction.data();
}

}  // namespace camclock::bench
