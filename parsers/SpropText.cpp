#include <camclock/ParameterSetParser.h>

#include <array>
#include <cstddef>

namespace camclock {
namespace {

constexpr int kEntryCapacity = 2048;  // bytes; a parameter set is a few dozen

constexpr unsigned char kNotADigit = 0xFF;

// Deliberate: a character outside '+' to 'z' is not passed over but counts as this digit, -62 in 8 bits, so
// that a space or a line break inside an entry corrupts it (SpropText.ForeignCharactersCorruptTheEntry).
constexpr unsigned char kForeignDigit = 194;

constexpr char kFirstInTable = '+';
constexpr char kLastInTable = 'z';

// RFC 4648, table 1, for the 80 characters from '+' to 'z'.
constexpr std::array<unsigned char, 80> MakeDigits() {
    std::array<unsigned char, 80> digits{};
    for (auto& digit : digits) {
        digit = kNotADigit;
    }
    unsigned char value = 0;
    for (const char* c = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"; *c != '\0';
         ++c) {
        digits[static_cast<std::size_t>(*c - kFirstInTable)] = value++;
    }
    return digits;
}

unsigned char DigitOf(char c) {
    static constexpr auto kDigits = MakeDigits();
    if (c < kFirstInTable || c > kLastInTable) {
        return kForeignDigit;
    }
    return kDigits[static_cast<std::size_t>(c - kFirstInTable)];
}

// The next entry at or after `position`, cut out of the text in place: separators in front of it are passed
// over, the one behind it becomes a zero byte. False when there is none. `end` is where the text ends.
bool NextEntry(std::string& text, std::size_t end, std::size_t& position, std::string& entry) {
    constexpr char kSeparator = ',';
    while (position < end && text[position] == kSeparator) {
        ++position;
    }
    if (position == end) {
        return false;
    }
    const std::size_t start = position;
    while (position < end && text[position] != kSeparator) {
        ++position;
    }
    entry.assign(text, start, position - start);
    if (position < end) {
        text[position++] = '\0';
    }
    return true;
}

}  // namespace

void ParameterSetParser::SetSpropsString(std::string& sprops) {
    std::size_t end = sprops.find('\0');
    if (end == std::string::npos) {
        end = sprops.size();
    }
    std::size_t position = 0;
    std::string entry;
    for (int i = 0; i < 2 && NextEntry(sprops, end, position, entry); ++i) {
        std::array<unsigned char, kEntryCapacity> bytes;  // only what is decoded into it is read
        int length = kEntryCapacity;
        _DecodeBase64(entry, bytes.data(), length);
        _SetPropString(entry, bytes.data(), length);
    }
}

// `length` is the capacity of `out` at first and the count of decoded bytes in the end.
void ParameterSetParser::_DecodeBase64(std::string& text, unsigned char* out, int& length) {
    const int capacity = length;
    int count = 0;
    std::array<unsigned int, 4> digits{};
    std::size_t held = 0;
    const auto writeGroup = [&] {
        out[count] = static_cast<unsigned char>(digits[0] << 2U | digits[1] >> 4U);
        out[count + 1] = static_cast<unsigned char>(digits[1] << 4U | digits[2] >> 2U);
        out[count + 2] = static_cast<unsigned char>(digits[2] << 6U | digits[3]);
        count += 3;
        digits = {};
        held = 0;
    };

    for (const char c : text) {
        if (count > capacity - 3) {
            break;
        }
        const unsigned char digit = DigitOf(c);
        if (digit == kNotADigit) {
            continue;
        }
        digits[held++] = digit;
        if (held == digits.size()) {
            writeGroup();
        }
    }
    if (held > 0 && count <= capacity - 3) {
        writeGroup();  // the missing digits are 0
    }

    // Deliberate: padding is known by its zero bytes, and zero bytes that end the payload go with it
    // (SpropText.LosesAZeroByteAtTheEnd).
    length = count;
    for (int examined = 1; examined <= 3 && examined <= count && out[count - examined] == 0; ++examined) {
        --length;
    }
}

void ParameterSetParser::_SetPropString(std::string& text, unsigned char* bytes, int length) {
    if (length < 1) {
        return;
    }
    constexpr unsigned int kTypeSPS = 7;  // ITU-T H.264, table 7-1
    constexpr unsigned int kTypePPS = 8;
    switch (bytes[0] & 0x1FU) {
    case kTypeSPS:
        spsText_ = text;
        spsBytes_.assign(bytes, bytes + length);
        ParseSPS(spsBytes_.data(), static_cast<unsigned int>(length), sps_);
        break;
    case kTypePPS:
        ppsText_ = text;
        ppsBytes_.assign(bytes, bytes + length);
        ParsePPS(ppsBytes_.data(), static_cast<unsigned int>(length), pps_);
        break;
    default: break;
    }
}

}  // namespace camclock
