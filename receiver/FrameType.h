#pragma once

#include "receiver/RtpPacket.h"

#include <camclock/MediaPacket.h>

namespace camclock::receiver {

/// The kind of the frame that this packet is a part of, as far as this packet tells; `kFrameUnknown` when it
/// carries no picture header, as most packets of a large frame do not.
///
/// H.264 (RFC 6184): single NAL units, STAP-A, STAP-B, FU-A and FU-B; an IDR slice is an I frame, other
/// slices tell by their slice_type (ITU-T H.264, 7.3.3). MPEG-4 Visual (RFC 6416): the vop_coding_type behind
/// the VOP start code (ISO/IEC 14496-2, 6.2.5).
MediaPacket::Frametype FrameTypeOf(Codec codec, const std::uint8_t* payload, std::size_t size);

}  // namespace camclock::receiver
