#include "receiver/FrameType.h"

#include "receiver/Bits.h"
#include "receiver/NalUnits.h"

#include <algorithm>

namespace camclock::receiver {
namespace {

constexpr FrameKind kKeyFrame{MediaPacket::kFrameI, true};

FrameKind KindOfH264(const NalUnit& unit) {
    constexpr unsigned kIdr = 5;
    if (unit.type == kIdr && unit.size > 0)
        return kKeyFrame;
    if (unit.type != 1 && unit.type != 2)  // a slice, whole or its partition A
        return {};
    Bits bits(unit.body, unit.size);
    unsigned first_mb_in_slice = 0;
    unsigned slice_type = 0;
    if (!bits.Ue(first_mb_in_slice) || !bits.Ue(slice_type))
        return {};
    switch (slice_type % 5) {  // 5 to 9 say the same of all slices of the picture (ITU-T H.264, table 7-6)
    case 0:
    case 3:  // SP
        return {MediaPacket::kFrameP};
    case 1: return {MediaPacket::kFrameB};
    default:  // I, SI
        return {MediaPacket::kFrameI};
    }
}

FrameKind KindOfH265(const NalUnit& unit) {
    if (unit.type >= 16 && unit.type <= 21 && unit.size > 0)
        return kKeyFrame;
    if (unit.type > 9)  // the types of other slices
        return {};
    Bits bits(unit.body, unit.size);
    unsigned pps_id = 0;
    unsigned slice_type = 0;
    const bool isFirst = bits.Bit() != 0;  // others have an address of unknown length in front
    if (!isFirst || !bits.Ue(pps_id) || !bits.Ue(slice_type))
        return {};
    switch (slice_type) {  // ITU-T H.265, table 7-7
    case 0: return {MediaPacket::kFrameB};
    case 1: return {MediaPacket::kFrameP};
    case 2: return {MediaPacket::kFrameI};
    default: return {};
    }
}

template <class KindOfUnit>
FrameKind FirstThatTells(Codec codec, const std::uint8_t* payload, std::size_t size, KindOfUnit kindOf) {
    FrameKind kind;
    ForEachNalUnit(codec, payload, size, [&](const NalUnit& unit) {
        kind = kindOf(unit);
        return kind.type == MediaPacket::kFrameUnknown;
    });
    return kind;
}

FrameKind KindOfMpeg4Visual(const std::uint8_t* payload, std::size_t size) {
    const auto isStartCode = [payload](std::size_t i) {
        return payload[i] == 0 && payload[i + 1] == 0 && payload[i + 2] == 1;
    };
    constexpr unsigned kVop = 0xB6;
    // Behind sequence, layer and group headers, which are some dozens of bytes; user data may make them more.
    constexpr std::size_t kLongestHeaders = 2048;
    const std::size_t end = std::min(size, kLongestHeaders);
    if (end < 5 || !isStartCode(0))
        return {};
    for (std::size_t i = 0; i + 4 < end; ++i) {
        if (!isStartCode(i) || payload[i + 3] != kVop)
            continue;
        switch (payload[i + 4] >> 6U) {  // vop_coding_type
        case 0: return kKeyFrame;
        case 1: return {MediaPacket::kFrameP};
        case 2: return {MediaPacket::kFrameB};
        default: return {MediaPacket::kFrameSprite};
        }
    }
    return {};
}

}  // namespace

FrameKind FrameKindOf(Codec codec, const std::uint8_t* payload, std::size_t size) {
    switch (codec) {
    case Codec::kH264: return FirstThatTells(codec, payload, size, KindOfH264);
    case Codec::kH265: return FirstThatTells(codec, payload, size, KindOfH265);
    case Codec::kMpeg4Visual: return KindOfMpeg4Visual(payload, size);
    case Codec::kMjpeg: return size > 0 ? kKeyFrame : FrameKind{};
    case Codec::kOther: break;
    }
    return {};
}

}  // namespace camclock::receiver
