#include "receiver/Base64.h"

#include <cstddef>

namespace camclock::receiver {
namespace {

std::vector<std::uint8_t> DecodeBase64(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    unsigned group = 0;
    unsigned bits = 0;
    for (const char c : text) {
        const std::size_t digit = kDigits.find(c);
        if (digit == std::string_view::npos)
            break;
        group = (group << 6U | static_cast<unsigned>(digit)) & 0xFFFFU;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<std::uint8_t>(group >> bits));
        }
    }
    return bytes;
}

}  // namespace

std::vector<std::vector<std::uint8_t>> DecodeBase64List(std::string_view text) {
    std::vector<std::vector<std::uint8_t>> entries;
    while (!text.empty()) {
        const std::size_t end = text.find(',');
        entries.push_back(DecodeBase64(text.substr(0, end)));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return entries;
}

}  // namespace camclock::receiver
