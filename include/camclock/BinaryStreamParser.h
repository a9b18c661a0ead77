#pragma once

#include <camclock/Export.h>

#include <cstdint>

namespace camclock {

/// What do the bits of a stream header say? The bit reader that both header parsers are built on: single
/// bits, fields of fixed width, peeks and Exp-Golomb codes (ITU-T H.264, 9.1) out of a byte buffer, most
/// significant bit of each byte first.
///
/// The buffer stays the caller's: it is never copied and must live as long as bits are read from it. A copy
/// of a reader shares the buffer and goes on from the same bit. One thread at a time per object.
///
/// A reader never stops at the end of the data. Whatever reads or peeks past it gets a pattern of 32 ones,
/// consumes nothing more and raises a flag that only `InitParser` clears: a parser reads all its fields and
/// looks at the flag once. Nothing is thrown, nothing allocates.
///
///     struct Header : camclock::BinaryStreamParser {
///         unsigned int Profile() { _ReadBits(8); return _ReadBits(8); }
///     } header;
///     header.InitParser(bytes.data(), static_cast<unsigned int>(bytes.size()));
class CAMCLOCK_API BinaryStreamParser {
public:
    /// A reader without data.
    BinaryStreamParser() = default;
    BinaryStreamParser(const BinaryStreamParser&) = default;
    BinaryStreamParser& operator=(const BinaryStreamParser&) = default;
    virtual ~BinaryStreamParser();

    /// Starts over on `size` bytes at `data`. Null counts as no data, whatever `size` says.
    ///
    /// The length in bits is kept in 32 bits: of `size` bytes the first `size` mod 2^29 are read.
    void InitParser(unsigned char* data, unsigned int size) {
        buffer_ = data;
        byteLength_ = data != nullptr ? size : 0;
        // Wraps at 512 MiB, which leaves fewer bits than there are, never more.
        bitLength_ = static_cast<std::uint32_t>(byteLength_ * 8U);
        bitPosition_ = 0;
        endOfData_ = false;
    }

protected:
    /// What a read past the end of the data gives.
    static constexpr unsigned int kNoData = 0xFFFF'FFFF;

    /// One bit.
    unsigned int _ReadBit() {
        if (bitPosition_ < bitLength_) {
            return _BitAt(bitPosition_++);
        }
        endOfData_ = true;
        return kNoData;
    }

    /// u(n): `n` bits, the first one most significant; 0 for `n` below 1. Of more than 32 bits, bit i from
    /// the end is ORed in at i mod 32. When the data runs out, the whole result is `kNoData`.
    unsigned int _ReadBits(int n) {
        const std::uint64_t start = bitPosition_;
        if (!_Claim(n)) {
            bitPosition_ = bitLength_;
            return kNoData;
        }
        bitPosition_ = start + (n > 0 ? static_cast<unsigned int>(n) : 0U);
        return _BitsFrom(start, n);
    }

    /// The bit at the caller's own position `pos`, which moves on by one; the reader stays where it is.
    unsigned int _NextBit(int& pos) {
        const auto position = static_cast<unsigned int>(pos);
        if (position < bitLength_) {
            pos = static_cast<int>(position + 1U);
            return _BitAt(position);
        }
        endOfData_ = true;
        return kNoData;
    }

    /// Like `_ReadBits`, but nothing is consumed. A peek past the end raises the end-of-data flag too.
    unsigned int _NextBits(int n) { return _Claim(n) ? _BitsFrom(bitPosition_, n) : kNoData; }

    /// Are the next `n` bits those of `value`? The same answer, and the same flag, as `_NextBits(n) == value`
    /// for `n` from 1 to 32, but it looks no further than to the first bit that differs.
    bool _NextBitsAre(int n, unsigned int value) {
        if (!_Claim(n)) {
            return value == kNoData;
        }
        std::uint64_t position = bitPosition_;
        for (int k = n; k-- > 0;) {
            if (_BitAt(position++) != ((value >> static_cast<unsigned int>(k)) & 1U)) {
                return false;
            }
        }
        return true;
    }

    /// ue(v): unsigned Exp-Golomb code (ITU-T H.264, 9.1). At most 33 bits of prefix are read.
    unsigned int _ReadExponentialGolombCode() {
        int zeros = 0;
        std::uint64_t position = bitPosition_;
        for (;;) {
            if (position >= bitLength_) {
                endOfData_ = true;
                break;
            }
            if (_BitAt(position++) == 1U || zeros == 32) {
                break;
            }
            ++zeros;
        }
        bitPosition_ = position;
        return _ReadBits(zeros) - 1U + (1U << (static_cast<unsigned int>(zeros) % 32U));
    }

    /// se(v): signed Exp-Golomb code (9.1.1), as the two's complement pattern of its value.
    unsigned int _ReadSE() {
        const unsigned int code = _ReadExponentialGolombCode();
        if (code % 2U == 1U) {
            // Deliberate: code + 1 is halved as a signed number, so that codes above 2^31 come out negative,
            // where the standard says (code + 1) / 2 (BinaryStreamParser.SignedCodesAbove31Bits).
            return static_cast<unsigned int>(static_cast<std::int32_t>(code + 1U) / 2);
        }
        return 0U - code / 2U;
    }

    /// Bits from here to the end of the data.
    unsigned int _BitsLeftInBuffer() const { return static_cast<unsigned int>(bitLength_ - bitPosition_); }

    bool _ByteAligned() const { return bitPosition_ % 8U == 0U; }

    unsigned char* buffer_ = nullptr;  // not owned
    unsigned int byteLength_ = 0;
    // Both fit in 32 bits. They are of another type than the 32-bit fields of the parsers' records, so that
    // the compiler may keep them in registers while it stores those.
    std::uint64_t bitLength_ = 0;
    std::uint64_t bitPosition_ = 0;  // next bit to read; never beyond bitLength_
    bool endOfData_ = false;         // a read or a peek went past the end

private:
    unsigned int _BitAt(std::uint64_t position) const {
        return (static_cast<unsigned int>(buffer_[position / 8U]) >> (~position & 7U)) & 1U;
    }

    // Are n more bits there? If not, raises the flag.
    bool _Claim(int n) {
        if (n < 1 || static_cast<unsigned int>(n) <= _BitsLeftInBuffer()) {
            return true;
        }
        endOfData_ = true;
        return false;
    }

    unsigned int _BitsFrom(std::uint64_t position, int n) const {
        unsigned int result = 0;
        for (; n > 0; --n) {
            result = (result << 1U | result >> 31U) | _BitAt(position++);  // turned round: see above 32 bits
        }
        return result;
    }
};

}  // namespace camclock
