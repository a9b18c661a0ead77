#pragma once

#include "receiver/RtpPacket.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace camclock::receiver {

/// What a receiver needs of one RTCP datagram. Keep one and hand it to every call: its memory is used again,
/// and never grows beyond what one datagram of 64 KiB can name.
struct RtcpContents {
    std::vector<SenderReport> reports;  ///< in the order of the datagram
    std::vector<std::uint32_t> byes;    ///< sources that have left (RFC 3550, 6.6)
};

/// Reads the sender reports (RFC 3550, 6.4.1) and goodbyes of one RTCP datagram, compound (6.1) or of reduced
/// size (RFC 5506: it may begin with any packet type). `out` is replaced. Any bytes may be given.
///
/// False when the first packet is none, and so the datagram no RTCP. A later broken packet ends the reading:
/// what stood before it is given. Broken is a packet of another version than 2, of a type that is no RTCP
/// (RFC 5761, 4), longer than the datagram, with padding that does not fit into it, or too short for what it
/// should carry. The report blocks behind a sender report are not looked at.
bool ReadRtcp(const std::uint8_t* data, std::size_t size, RtcpContents& out);

}  // namespace camclock::receiver
