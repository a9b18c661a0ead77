#pragma once

#include <string>
#include <string_view>

namespace camclock::app {

/// Text from a camera, a file or a command line as one line for a terminal: control characters (C0, DEL, C1)
/// and bytes that are no UTF-8 become "\x1b" and the like. The one place where the program escapes.
std::string Printable(std::string_view text);

}  // namespace camclock::app
