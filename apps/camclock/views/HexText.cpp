#include "apps/camclock/views/HexText.h"

#include <fmt/format.h>

#include <cstddef>

namespace camclock::app {
namespace {

constexpr int kNoDigit = -1;

int DigitOf(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return kNoDigit;
}

std::string Shown(char c) {
    return c > ' ' && c < '\x7F' ? fmt::format("'{}'", c)
                                 : fmt::format("code 0x{:02X}", static_cast<unsigned char>(c));
}

}  // namespace

HexText HexText::Parse(const std::string& text) {
    HexText result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int digit = DigitOf(text[i]);
        if (digit == kNoDigit)
            return {{}, fmt::format("not hexadecimal: character {} is {}", i + 1, Shown(text[i]))};
        if (i % 2 == 0)
            result.bytes.push_back(static_cast<unsigned char>(digit * 16));
        else
            result.bytes.back() = static_cast<unsigned char>(result.bytes.back() + digit);
    }
    if (text.size() % 2 != 0)
        return {{}, fmt::format("not whole bytes: {} hexadecimal digits", text.size())};
    return result;
}

}  // namespace camclock::app
