#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace camclock::app {

/// A time of day as five lines of large digits, for a terminal: digits, colons and points; a digit is six
/// columns wide, the rest two, with two between them. UTF-8.
std::vector<std::string> BigDigits(std::string_view text);

}  // namespace camclock::app
