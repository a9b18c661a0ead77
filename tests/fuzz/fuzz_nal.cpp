// The first byte names the codec, the rest is a payload: frame type and picture size.
#include "fuzz/FuzzInput.h"
#include "receiver/FrameType.h"
#include "receiver/NalUnits.h"
#include "receiver/PictureHeaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    using camclock::receiver::Codec;
    if (size == 0)
        return 0;
    constexpr Codec kCodecs[] = {Codec::kH264, Codec::kH265, Codec::kMpeg4Visual, Codec::kMjpeg,
                                 Codec::kOther};
    const Codec codec = kCodecs[data[0] % std::size(kCodecs)];
    const auto bytes = camclock::fuzz::Exact(data + 1, size - 1);

    // Units lie in the payload one behind the other, each behind its header.
    const std::uint8_t* end = bytes.data();
    camclock::receiver::ForEachNalUnit(codec, bytes.data(), bytes.size(), [&](const auto& unit) {
        Require(unit.type < 64 && unit.body >= end + camclock::receiver::NalHeaderSize(codec));
        end = unit.body + unit.size;
        Require(end <= bytes.data() + bytes.size());
        return true;
    });

    const auto kind = camclock::receiver::FrameKindOf(codec, bytes.data(), bytes.size());
    Require(!kind.key || kind.type == camclock::MediaPacket::kFrameI);
    Require(codec != Codec::kOther || kind.type == camclock::MediaPacket::kFrameUnknown);

    camclock::receiver::PictureHeaders headers(codec, "");
    headers.Take(bytes.data(), bytes.size());
    const auto picture = headers.Picture();
    Require(!picture || (picture->width > 0 && picture->height > 0));
    Require(!picture || codec != Codec::kH265 || (picture->width <= 131'070 && picture->height <= 131'070));
    headers.Take(bytes.data(), bytes.size());
    return 0;
}
