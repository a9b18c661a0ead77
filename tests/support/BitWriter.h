#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace camclock::testing {

// Writes a bit string the way ITU-T H.264 and ISO/IEC 14496-2 describe their headers: builds what the parser
// tests read. The last byte is filled up with zeros.
class BitWriter {
public:
    BitWriter& U(int bits, std::uint64_t value) {
        for (int i = bits - 1; i >= 0; --i) {
            Bit(((value >> static_cast<unsigned>(i)) & 1U) != 0);
        }
        return *this;
    }

    BitWriter& Flag(bool value) { return U(1, value ? 1 : 0); }

    // Unsigned Exp-Golomb code (ITU-T H.264, 9.1).
    BitWriter& Ue(std::uint32_t value) {
        const std::uint64_t code = std::uint64_t{value} + 1;
        int length = 0;
        while ((code >> static_cast<unsigned>(length)) > 1) {
            ++length;
        }
        return U(length, 0).U(length + 1, code);
    }

    // Signed Exp-Golomb code (9.1.1).
    BitWriter& Se(std::int32_t value) {
        const std::int64_t wide = value;
        return Ue(static_cast<std::uint32_t>(wide > 0 ? 2 * wide - 1 : -2 * wide));
    }

    // A bit string as text: "00101"; other characters only separate.
    BitWriter& Bits(std::string_view text) {
        for (const char c : text) {
            if (c == '0' || c == '1') {
                Bit(c == '1');
            }
        }
        return *this;
    }

    // MPEG-4's stuffing in front of a start code: a zero, then ones up to the byte boundary.
    BitWriter& NextStartCode() {
        Bit(false);
        while (bits_ % 8 != 0) {
            Bit(true);
        }
        return *this;
    }

    // The one and zeros that end a NAL unit.
    BitWriter& TrailingBits() {
        Bit(true);
        while (bits_ % 8 != 0) {
            Bit(false);
        }
        return *this;
    }

    std::size_t BitCount() const { return bits_; }
    std::vector<unsigned char> Bytes() const { return bytes_; }

private:
    void Bit(bool one) {
        if (bits_ % 8 == 0) {
            bytes_.push_back(0);
        }
        if (one) {
            bytes_.back() = static_cast<unsigned char>(bytes_.back() | (0x80U >> (bits_ % 8)));
        }
        ++bits_;
    }

    std::vector<unsigned char> bytes_;
    std::size_t bits_ = 0;
};

}  // namespace camclock::testing
