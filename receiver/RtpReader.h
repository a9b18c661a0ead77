#pragma once

#include "receiver/RtpPacket.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace camclock::receiver {

/// The RTP packet (RFC 3550, 5.1) that a datagram is, if it is one. Its payload points into `data`.
///
/// Version 2 is asked for, and that CSRC list, header extension (5.3.1) and padding lie within the datagram.
/// What RFC 5761, 4 takes for RTCP on a shared port is refused, so that RTP of the payload types 64 to 95
/// loses the packets with a marker bit. A packet without payload is one. Any bytes may be given, none through
/// a null pointer.
std::optional<RtpPacket> ReadRtp(const std::uint8_t* data, std::size_t size);

}  // namespace camclock::receiver
