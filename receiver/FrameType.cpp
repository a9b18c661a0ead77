#include "receiver/FrameType.h"

namespace camclock::receiver {
namespace {

using MediaPacket::Frametype;

/// A stretch of bytes that is only read from the front.
struct Bytes {
    const std::uint8_t* data;
    std::size_t size;

    Bytes Without(std::size_t count) const {
        return count < size ? Bytes{data + count, size - count} : Bytes{data, 0};
    }
};

/// Reads bits for as long as there are any, then zeros.
class Bits {
public:
    explicit Bits(Bytes bytes)
        : bytes_(bytes) {}

    bool AtEnd() const { return position_ >= bytes_.size * 8; }

    unsigned Bit() {
        if (AtEnd())
            return 0;
        const unsigned byte = bytes_.data[position_ / 8];
        const unsigned bit = byte >> (7 - position_ % 8) & 1U;
        ++position_;
        return bit;
    }

    /// ue(v) (ITU-T H.264, 9.1). The codes of a slice header's first two fields are short: one of more than
    /// 16 leading zeros, or one that the data end in, is not a slice header.
    bool Ue(unsigned& value) {
        unsigned zeros = 0;
        while (!AtEnd() && Bit() == 0)
            ++zeros;
        if (zeros > 16 || position_ + zeros > bytes_.size * 8)
            return false;
        unsigned suffix = 0;
        for (unsigned i = 0; i < zeros; ++i)
            suffix = suffix << 1 | Bit();
        value = (1U << zeros) - 1 + suffix;
        return true;
    }

private:
    Bytes bytes_;
    std::size_t position_ = 0;
};

/// `slice` begins behind the NAL unit's header byte.
Frametype TypeOfSlice(Bytes slice) {
    Bits bits(slice);
    unsigned first_mb_in_slice = 0;
    unsigned slice_type = 0;
    if (slice.size == 0 || !bits.Ue(first_mb_in_slice) || !bits.Ue(slice_type))
        return MediaPacket::kFrameUnknown;
    switch (slice_type % 5) {  // 5 to 9 say the same of all slices of the picture (ITU-T H.264, table 7-6)
    case 0:
    case 3:  // SP
        return MediaPacket::kFrameP;
    case 1: return MediaPacket::kFrameB;
    default:  // I, SI
        return MediaPacket::kFrameI;
    }
}

Frametype TypeOfNal(unsigned nal_unit_type, Bytes behindHeader) {
    switch (nal_unit_type) {
    case 5: return MediaPacket::kFrameI;  // IDR
    case 1:
    case 2: return TypeOfSlice(behindHeader);  // a slice, whole or its partition A
    default: return MediaPacket::kFrameUnknown;
    }
}

Frametype TypeOfAggregate(Bytes units) {
    while (units.size >= 3) {
        const std::size_t size = static_cast<std::size_t>(units.data[0]) << 8 | units.data[1];
        units = units.Without(2);
        if (size == 0 || size > units.size)
            break;
        const Frametype type = TypeOfNal(units.data[0] & 0x1FU, Bytes{units.data, size}.Without(1));
        if (type != MediaPacket::kFrameUnknown)
            return type;
        units = units.Without(size);
    }
    return MediaPacket::kFrameUnknown;
}

Frametype TypeOfFragment(Bytes packet, std::size_t headerSize) {
    constexpr unsigned kStart = 0x80;
    if (packet.size <= headerSize || (packet.data[1] & kStart) == 0)
        return MediaPacket::kFrameUnknown;
    return TypeOfNal(packet.data[1] & 0x1FU, packet.Without(headerSize));
}

Frametype H264(Bytes packet) {
    if (packet.size < 2)
        return MediaPacket::kFrameUnknown;
    const unsigned type = packet.data[0] & 0x1FU;
    switch (type) {
    case 24: return TypeOfAggregate(packet.Without(1));  // STAP-A
    case 25: return TypeOfAggregate(packet.Without(3));  // STAP-B: a decoding order number first
    case 28: return TypeOfFragment(packet, 2);           // FU-A
    case 29: return TypeOfFragment(packet, 4);           // FU-B: a decoding order number behind the header
    default: return TypeOfNal(type, packet.Without(1));
    }
}

Frametype Mpeg4Visual(Bytes packet) {
    // A start code is never split between packets, and 00 00 01 never occurs inside video data.
    for (std::size_t i = 0; i + 4 < packet.size; ++i) {
        const std::uint8_t* p = packet.data + i;
        if (p[0] != 0 || p[1] != 0 || p[2] != 1 || p[3] != 0xB6)
            continue;
        switch (p[4] >> 6) {  // vop_coding_type
        case 0: return MediaPacket::kFrameI;
        case 1: return MediaPacket::kFrameP;
        case 2: return MediaPacket::kFrameB;
        default: return MediaPacket::kFrameSprite;
        }
    }
    return MediaPacket::kFrameUnknown;
}

}  // namespace

Frametype FrameTypeOf(Codec codec, const std::uint8_t* payload, std::size_t size) {
    const Bytes packet{payload, size};
    return codec == Codec::kH264 ? H264(packet) : Mpeg4Visual(packet);
}

}  // namespace camclock::receiver
