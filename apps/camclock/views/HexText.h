#pragma once

#include <string>
#include <vector>

namespace camclock::app {

/// The bytes that a user wrote in hexadecimal, two digits each; upper and lower case.
struct HexText {
    std::vector<unsigned char> bytes;
    std::string error;  ///< why the text is none; empty if it is

    static HexText Parse(const std::string& text);
};

}  // namespace camclock::app
