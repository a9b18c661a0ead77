#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace camclock::testing {

// Base64 with padding (RFC 4648, 4), for texts that the parsers read.
inline std::string EncodeBase64(const std::vector<unsigned char>& bytes) {
    constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t held = bytes.size() - i < 3 ? bytes.size() - i : 3;
        unsigned int group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group = group << 8U | (k < held ? bytes[i + k] : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += k <= held ? kDigits[(group >> (18U - 6U * k)) & 0x3FU] : '=';
        }
    }
    return text;
}

}  // namespace camclock::testing
