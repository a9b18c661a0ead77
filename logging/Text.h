#pragma once

#include "logging/TimeText.h"

#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

namespace camclock {

// Message text without stream state: plain decimals whatever the global locale says, times in the log's one
// form.

/// What every logged time looks like: 2031-04-05 14:07:09.042, always UTC.
inline constexpr const char* kLogTimeFormat = "%Y-%m-%d %H:%M:%S";

inline void AppendText(std::string& text, std::string_view part) {
    text.append(part);
}

inline void AppendText(std::string& text, const char* part) {
    text.append(part);
}

inline void AppendText(std::string& text, bool value) {
    text.append(value ? "true" : "false");
}

inline void AppendText(std::string& text, char value) {
    text.push_back(value);
}

inline void AppendText(std::string& text, TimePoint time) {
    AppendLogTime(text, time);
}

/// A floating-point number as a stream writes it by default: six significant digits.
inline void AppendText(std::string& text, double value) {
    std::array<char, 32> buffer;
    const auto end =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general, 6);
    text.append(buffer.data(), end.ptr);
}

template <class Integer, std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, bool> &&
                                              !std::is_same_v<Integer, char>,
                                          int> = 0>
void AppendText(std::string& text, Integer value) {
    std::array<char, 24> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    text.append(buffer.data(), end.ptr);
}

/// All parts, one after the other.
template <class... Parts>
std::string Text(const Parts&... parts) {
    std::string text;
    (AppendText(text, parts), ...);
    return text;
}

}  // namespace camclock
