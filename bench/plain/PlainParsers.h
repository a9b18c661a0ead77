#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace camclock::bench {

/// Bits as one would read them at first: one call a bit, with its own check against the end.
class PlainBits {
public:
    PlainBits(const unsigned char* data, std::size_t size)
        : data_(data)
        , bits_(8 * size) {}

    std::uint32_t Bit() {
        if (position_ >= bits_) {
            end_ = true;
            return 0xFFFFFFFF;
        }
        const std::uint32_t bit =
            (static_cast<std::uint32_t>(data_[position_ / 8]) >> (7 - position_ % 8)) & 1;
        ++position_;
        return bit;
    }

    std::uint32_t Bits(int n) {
        std::uint32_t value = 0;
        for (int k = n - 1; k >= 0; --k)
            value |= Bit() << (k % 32);
        return value;
    }

    std::uint32_t Peek(int n) {
        const std::size_t position = position_;
        const std::uint32_t value = Bits(n);
        position_ = position;
        return value;
    }

    std::uint32_t Ue() {
        int zeros = 0;
        while (position_ < bits_ && Bit() != 1 && zeros < 32)
            ++zeros;
        return Bits(zeros) - 1 + (1U << (zeros % 32));
    }

    std::uint32_t Se() {
        const std::uint32_t code = Ue();
        return code % 2 == 1 ? (code + 1) / 2 : 0U - code / 2;
    }

    void Align() {
        Bit();
        while (position_ % 8 != 0)
            Bit();
    }

    bool End() const { return end_; }

private:
    const unsigned char* data_;
    std::size_t bits_;
    std::size_t position_ = 0;
    bool end_ = false;
};

struct PlainSps {
    bool valid = false;
    std::uint32_t profile = 0, level = 0, chroma = 0;
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint32_t> scalingListPresent;
    std::vector<std::int32_t> offsets;
};

/// The fields of a sequence parameter set up to the VUI flag, and the size that they give.
inline PlainSps PlainParseSps(const unsigned char* data, std::size_t size) {
    PlainSps sps;
    PlainBits bits(data, size);
    bits.Bits(8);
    sps.profile = bits.Bits(8);
    bits.Bits(8);
    sps.level = bits.Bits(8);
    bits.Ue();
    if (sps.profile == 100 || sps.profile == 110 || sps.profile == 122 || sps.profile == 144) {
        sps.chroma = bits.Ue();
        if (sps.chroma == 3)
            bits.Bit();
        bits.Ue();
        bits.Ue();
        bits.Bit();
        if (bits.Bit() != 0) {
            sps.scalingListPresent.resize(sps.chroma == 3 ? 12 : 8);
            for (std::size_t i = 0; i < sps.scalingListPresent.size(); ++i) {
                sps.scalingListPresent[i] = bits.Bit();
                if (sps.scalingListPresent[i] == 0)
                    continue;
                if (i >= 6) {
                    bits.Se();
                    continue;
                }
                std::uint32_t next = 8;
                for (int j = 0; j < 16; ++j) {
                    if (next != 0)
                        next = (8 + bits.Se()) % 256;
                }
            }
        }
    }
    bits.Ue();
    const std::uint32_t orderCountType = bits.Ue();
    if (orderCountType == 0) {
        bits.Ue();
    } else if (orderCountType == 1) {
        bits.Bit();
        bits.Se();
        bits.Se();
        const std::uint32_t cycle = bits.Ue();
        for (std::uint32_t i = 0; i < cycle && !bits.End(); ++i)
            sps.offsets.push_back(static_cast<std::int32_t>(bits.Se()));
    }
    bits.Ue();
    bits.Bit();
    const std::uint32_t widthInMbs = bits.Ue() + 1;
    const std::uint32_t heightInUnits = bits.Ue() + 1;
    const std::uint32_t frameMbsOnly = bits.Bit();
    if (frameMbsOnly == 0)
        bits.Bit();
    bits.Bit();
    std::uint32_t crop[4] = {};
    if (bits.Bit() != 0) {
        for (std::uint32_t& side : crop)
            side = bits.Ue();
    }
    bits.Bit();
    sps.valid = !bits.End();
    sps.width = (widthInMbs * 8 - crop[1] - crop[0]) * 2;
    sps.height = ((2 - frameMbsOnly) * heightInUnits * 8 - crop[3] - crop[2]) * 2;
    return sps;
}

struct PlainPps {
    bool valid = false;
    std::uint32_t id = 0, entropy = 0, l0 = 0, l1 = 0, qp = 0, deblocking = 0;
};

inline PlainPps PlainParsePps(const unsigned char* data, std::size_t size) {
    PlainPps pps;
    PlainBits bits(data, size);
    bits.Bits(8);
    pps.id = bits.Ue();
    bits.Ue();
    pps.entropy = bits.Bit();
    bits.Bit();
    bits.Ue();  // no slice groups in what is measured
    pps.l0 = bits.Ue();
    pps.l1 = bits.Ue();
    bits.Bit();
    bits.Bits(2);
    pps.qp = bits.Ue();
    bits.Ue();
    bits.Ue();
    pps.deblocking = bits.Bit();
    bits.Bit();
    bits.Bit();
    pps.valid = !bits.End();
    return pps;
}

inline std::vector<unsigned char> PlainBase64(const std::string& text) {
    static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char c : text) {
        const std::size_t digit = digits.find(c);
        if (digit == std::string::npos)
            continue;
        group = group << 6 | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<unsigned char>(group >> bits));
        }
    }
    return bytes;
}

inline std::vector<unsigned char> PlainHex(const std::string& text) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::strtol(text.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

struct PlainMpeg4 {
    std::uint32_t width = 0, height = 0, resolution = 0, codingType = 0;
    bool layerValid = false;
};

inline int PlainSignificantBits(std::uint32_t value) {
    int bits = 0;
    for (; value != 0; value >>= 1)
        ++bits;
    return bits;
}

/// The VOP header of a rectangular layer.
inline void PlainParseVop(PlainBits& bits, PlainMpeg4& out) {
    bits.Bits(32);
    out.codingType = bits.Bits(2);
    while (bits.Bit() == 1) {
    }
    bits.Bit();
    bits.Bits(PlainSignificantBits(out.resolution));
    bits.Bit();
    bits.Bit();
}

/// Sequence, object and rectangular layer of a Simple Profile configuration.
inline PlainMpeg4 PlainParseMpeg4Config(const unsigned char* data, std::size_t size) {
    PlainMpeg4 out;
    PlainBits bits(data, size);
    const auto skipUserData = [&bits] {
        while (bits.Peek(32) == 0x1B2) {
            bits.Bits(32);
            while (bits.Peek(24) != 1 && !bits.End())
                bits.Bits(8);
        }
    };
    bits.Bits(32);
    bits.Bits(8);
    skipUserData();
    bits.Bits(32);
    std::uint32_t verid = 0;
    if (bits.Bit() != 0) {
        bits.Bits(4);
        bits.Bits(3);
    }
    bits.Bits(4);
    bits.Align();
    bits.Bits(32);
    bits.Bits(32);  // the layer's start code
    bits.Bit();
    bits.Bits(8);
    if (bits.Bit() != 0) {
        verid = bits.Bits(4);
        bits.Bits(3);
    }
    if (bits.Bits(4) == 15) {
        bits.Bits(8);
        bits.Bits(8);
    }
    if (bits.Bit() != 0) {
        bits.Bits(3);
        if (bits.Bit() != 0) {
            for (const int width : {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1})
                bits.Bits(width);
        }
    }
    bits.Bits(2);
    bits.Bit();
    out.resolution = bits.Bits(16);
    bits.Bit();
    if (bits.Bit() != 0)
        bits.Bits(PlainSignificantBits(out.resolution));
    bits.Bit();
    out.width = bits.Bits(13);
    bits.Bit();
    out.height = bits.Bits(13);
    bits.Bit();
    bits.Bit();
    bits.Bit();
    bits.Bits(verid == 1 ? 1 : 2);
    bits.Bit();
    bits.Bit();
    if (verid != 1)
        bits.Bit();
    bits.Bit();
    bits.Bit();
    if (bits.Bit() != 0)
        bits.Bit();
    if (verid != 1) {
        bits.Bit();
        bits.Bit();
    }
    bits.Bit();
    out.layerValid = !bits.End();
    bits.Align();
    skipUserData();
    PlainParseVop(bits, out);
    return out;
}

}  // namespace camclock::bench
