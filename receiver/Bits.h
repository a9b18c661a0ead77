#pragma once

#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// Reads the bits of a header, most significant first, for as long as there are any, then zeros. It takes
/// constant bytes, where the library's `BinaryStreamParser` does not.
class Bits {
public:
    Bits(const std::uint8_t* data, std::size_t size)
        : data_(data)
        , end_(size * 8) {}

    bool AtEnd() const { return position_ >= end_; }

    unsigned Bit() {
        if (AtEnd())
            return 0;
        const unsigned byte = data_[position_ / 8];
        const unsigned bit = byte >> (7 - position_ % 8) & 1U;
        ++position_;
        return bit;
    }

    void Skip(std::size_t count) { position_ = count < end_ - position_ ? position_ + count : end_; }

    unsigned U(unsigned count) {
        unsigned value = 0;
        for (unsigned i = 0; i < count; ++i)
            value = value << 1U | Bit();
        return value;
    }

    /// ue(v) (ITU-T H.264 and H.265, 9.1 and 9.2). What is read here is small: a code of more than 16 leading
    /// zeros, or one that the data end in, is none.
    bool Ue(unsigned& value) {
        unsigned zeros = 0;
        while (!AtEnd() && Bit() == 0)
            ++zeros;
        if (zeros > 16 || position_ + zeros > end_)
            return false;
        value = (1U << zeros) - 1 + U(zeros);
        return true;
    }

private:
    const std::uint8_t* data_;
    std::size_t end_;
    std::size_t position_ = 0;
};

}  // namespace camclock::receiver
