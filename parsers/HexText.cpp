#include "parsers/HexText.h"

#include <array>
#include <cstddef>

namespace camclock {
namespace {

constexpr unsigned char kNoDigit = 0xFF;

constexpr std::array<unsigned char, 256> MakeDigits() {
    std::array<unsigned char, 256> digits{};
    for (auto& digit : digits) {
        digit = kNoDigit;
    }
    for (unsigned char value = 0; value < 16; ++value) {
        digits[static_cast<unsigned char>("0123456789abcdef"[value])] = value;
        digits[static_cast<unsigned char>("0123456789ABCDEF"[value])] = value;
    }
    return digits;
}

constexpr std::array<unsigned char, 256> kDigits = MakeDigits();

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// White space and a sign may stand before the digit, and reading stops at the first character that is none.
unsigned char OddPair(char first, unsigned char high, unsigned char low) {
    if (high != kNoDigit) {
        return high;
    }
    if (low == kNoDigit) {
        return 0;
    }
    if (first == '-') {
        return static_cast<unsigned char>(-low);
    }
    return first == '+' || IsSpace(first) ? low : static_cast<unsigned char>(0);
}

}  // namespace

void DecodeHexText(const std::string& text, std::vector<unsigned char>& bytes) {
    bytes.resize(text.size() / 2);
    const char* pair = text.data();
    for (unsigned char& byte : bytes) {
        const unsigned char high = kDigits[static_cast<unsigned char>(pair[0])];
        const unsigned char low = kDigits[static_cast<unsigned char>(pair[1])];
        // Only kNoDigit has a bit above the low four.
        byte = (high | low) < 16 ? static_cast<unsigned char>(high * 16 + low) : OddPair(pair[0], high, low);
        pair += 2;
    }
}

}  // namespace camclock
