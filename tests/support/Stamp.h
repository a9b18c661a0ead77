#pragma once

#include <cstddef>
#include <string>

namespace camclock::test {

// The stamp of an asynchronous log: [[2031-04-05 14:07:09.042 [4312] ]] and one blank.

/// Where the text behind the stamp begins; 0 when there is no stamp.
inline std::size_t StampLength(const std::string& line) {
    if (line.compare(0, 2, "[[") != 0)
        return 0;
    const std::size_t end = line.find("] ]] ");
    return end == std::string::npos ? 0 : end + 5;
}

inline bool HasStamp(const std::string& line) {
    return StampLength(line) > 0;
}

inline std::string WithoutStamp(const std::string& line) {
    return line.substr(StampLength(line));
}

}  // namespace camclock::test
