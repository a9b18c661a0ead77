#pragma once

#include <camclock/MediaPacket.h>
#include <camclock/receiver/Format.h>

#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// Of what kind a frame is.
struct FrameKind {
    MediaPacket::Frametype type = MediaPacket::kFrameUnknown;
    bool key = false;  ///< decoding can begin here
};

/// The kind of the frame that this payload is a part of, as far as it tells: of type `kFrameUnknown` when it
/// carries no picture header, as most packets of a large frame do not. Only the first slice in it is looked
/// at. Any bytes may be given; a packet in the middle of a frame costs a few bytes' reading.
///
/// H.264: an IDR slice is a key frame and of type I; other slices tell by their slice_type (ITU-T H.264,
/// 7.3.3), and an I frame that is no IDR is no key frame. H.265: an IRAP picture (nal_unit_type 16 to 21;
/// ITU-T H.265, 7.4.2.2) is a key frame and of type I; other pictures tell by the slice_type of their first
/// slice segment (7.3.6.1), read as in streams without extra slice header bits, since the parameter set that
/// announces them is not at hand. MPEG-4 Visual (RFC 6416): the vop_coding_type behind the VOP start code
/// (ISO/IEC 14496-2, 6.2.5), an I-VOP is a key frame; a payload with headers begins with one (RFC 6416, 5.2).
/// JPEG: every frame is a key frame and of type I.
FrameKind FrameKindOf(Codec codec, const std::uint8_t* payload, std::size_t size);

}  // namespace camclock::receiver
