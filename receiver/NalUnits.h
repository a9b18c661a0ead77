#pragma once

#include "receiver/Bytes.h"

#include <camclock/receiver/Format.h>

#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// One NAL unit of an RTP payload, or the beginning of one that is spread over packets.
struct NalUnit {
    unsigned type = 0;                   ///< nal_unit_type
    const std::uint8_t* body = nullptr;  ///< behind the unit's header
    std::size_t size = 0;                ///< of the body, as far as this packet holds it
    bool whole = false;                  ///< its header stands right in front of the body
};

/// Bytes of a NAL unit's header (ITU-T H.264, 7.3.1; H.265, 7.3.1.2).
constexpr std::size_t NalHeaderSize(Codec codec) {
    return codec == Codec::kH265 ? 2 : 1;
}

namespace detail {

inline unsigned NalType(Codec codec, const std::uint8_t* header) {
    return codec == Codec::kH265 ? header[0] >> 1U & 0x3FU : header[0] & 0x1FU;
}

/// Units behind a size of 16 bits and `between` more bytes each.
template <class Take>
void WalkAggregate(Codec codec, const std::uint8_t* units, std::size_t size, std::size_t between,
                   const Take& take) {
    const std::size_t header = NalHeaderSize(codec);
    while (size > 2 + between) {
        const std::size_t length = Load16(units);
        units += 2 + between;
        size -= 2 + between;
        if (length < header || length > size)
            return;
        if (!take(NalUnit{NalType(codec, units), units + header, length - header, true}))
            return;
        units += length;
        size -= length;
    }
}

template <class Take>
void WalkH264(const std::uint8_t* payload, std::size_t size, const Take& take) {
    constexpr unsigned kStart = 0x80;
    // What stands in front of the first unit of an aggregate, and of the data of a fragment.
    constexpr std::size_t kOrderNumber = 2;
    const unsigned type = payload[0] & 0x1FU;
    std::size_t between = 0;
    switch (type) {  // RFC 6184, table 1
    case 24:         // STAP-A
        WalkAggregate(Codec::kH264, payload + 1, size - 1, between, take);
        return;
    case 27:  // MTAP24: 8 bits of order number and 24 of time for each unit
    case 26:  // MTAP16: 8 and 16
        between = type == 26 ? 3 : 4;
        [[fallthrough]];
    case 25:  // STAP-B
        if (size > 1 + kOrderNumber)
            WalkAggregate(Codec::kH264, payload + 1 + kOrderNumber, size - 1 - kOrderNumber, between, take);
        return;
    case 28:    // FU-A
    case 29: {  // FU-B
        const std::size_t header = type == 28 ? 2 : 2 + kOrderNumber;
        if (size >= header && (payload[1] & kStart) != 0)
            take(NalUnit{payload[1] & 0x1FU, payload + header, size - header, false});
        return;
    }
    case 0:
    case 30:
    case 31: return;  // not specified
    default: take(NalUnit{type, payload + 1, size - 1, true});
    }
}

template <class Take>
void WalkH265(const std::uint8_t* payload, std::size_t size, const Take& take) {
    constexpr std::size_t kHeader = 2;
    if (size < kHeader)
        return;
    const unsigned type = NalType(Codec::kH265, payload);
    if (type < 48) {  // RFC 7798, 4.4.1
        take(NalUnit{type, payload + kHeader, size - kHeader, true});
    } else if (type == 48) {  // AP, 4.4.2
        WalkAggregate(Codec::kH265, payload + kHeader, size - kHeader, 0, take);
    } else if (type == 49 && size > kHeader) {  // FU, 4.4.3
        const unsigned header = payload[kHeader];
        const bool isStart = (header & 0x80U) != 0;
        if (isStart)
            take(NalUnit{header & 0x3FU, payload + kHeader + 1, size - kHeader - 1, false});
    }
}

}  // namespace detail

/// Calls `take(const NalUnit&)` for every NAL unit that is whole in an RTP payload, and for the one whose
/// first fragment it holds, until `take` returns false.
///
/// H.264: RFC 6184, all packet types. H.265: RFC 7798, single units, AP and FU, without decoding order
/// numbers (sprop-max-don-diff is 0 in what cameras send); PACI packets are passed over. A unit that does not
/// fit into its payload ends the walk. Other codecs have no NAL units. Any bytes may be given.
template <class Take>
void ForEachNalUnit(Codec codec, const std::uint8_t* payload, std::size_t size, const Take& take) {
    if (size == 0)
        return;
    if (codec == Codec::kH264)
        detail::WalkH264(payload, size, take);
    else if (codec == Codec::kH265)
        detail::WalkH265(payload, size, take);
}

}  // namespace camclock::receiver
