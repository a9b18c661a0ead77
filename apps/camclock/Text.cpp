#include "apps/camclock/Text.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>

namespace camclock::app {
namespace {

/// Length of the UTF-8 sequence that begins with these bytes (RFC 3629, 4); 0 when they begin none.
std::size_t SequenceLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    if (first < 0x80)
        return 1;
    std::size_t length = 0;
    if (first >= 0xC2 && first <= 0xDF)
        length = 2;
    else if (first >= 0xE0 && first <= 0xEF)
        length = 3;
    else if (first >= 0xF0 && first <= 0xF4)
        length = 4;
    if (length == 0 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0U) != 0x80U)
            return 0;
    // Longer than need be, surrogates, and beyond the last character.
    if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
        (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F))
        return 0;
    return length;
}

bool IsControl(std::string_view sequence) {
    const auto first = static_cast<std::uint8_t>(sequence[0]);
    if (sequence.size() == 1)
        return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<std::uint8_t>(sequence[1]) < 0xA0;
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        const std::string_view sequence = text.substr(0, length == 0 ? 1 : length);
        if (length == 0 || IsControl(sequence)) {
            for (const char c : sequence)
                result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        } else {
            result += sequence;
        }
        text.remove_prefix(sequence.size());
    }
    return result;
}

}  // namespace camclock::app
