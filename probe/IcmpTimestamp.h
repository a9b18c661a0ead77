#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace camclock::icmp {

// The Timestamp and Timestamp Reply messages of RFC 792, as bytes. Nothing here reads a clock or a socket.

inline constexpr std::uint8_t kProtocol = 1;         // in the IPv4 header
inline constexpr std::uint8_t kTimestamp = 13;       // RFC 792, page 16
inline constexpr std::uint8_t kTimestampReply = 14;  // the same
inline constexpr std::size_t kRequestSize = 20;
inline constexpr std::size_t kReplySize =
    40;  // an IPv4 header without options and the 20 bytes of the message

/// A Timestamp message without its IPv4 header.
using TimestampRequest = std::array<std::uint8_t, kRequestSize>;

/// What is looked at in a Timestamp Reply, behind an IPv4 header of 20 bytes.
struct TimestampReply {
    std::uint8_t protocol;
    std::uint8_t type;
    std::uint16_t identifier;    // host's byte order, as it was sent
    std::uint32_t originate_ms;  // the same; milliseconds after midnight UTC, host's clock
    std::uint32_t transmit_ms;   // from network byte order; milliseconds after midnight UTC, camera's clock
};

/// The complement of the one's complement sum of the 16-bit words (RFC 1071), which has the same bytes in
/// memory whatever the byte order. The message's own checksum field holds 0 meanwhile.
std::uint16_t Checksum(const TimestampRequest& message);

/// The message with its checksum.
///
/// Deliberate: all fields are in the host's own byte order. The camera echoes identifier, sequence number and
/// originate time unread (RFC 792, page 17), and here alone they are read again
/// (IcmpTimestamp.WritesFieldsInHostByteOrder).
TimestampRequest MakeRequest(std::uint16_t identifier, std::uint16_t sequence, std::uint32_t originate_ms);

/// Reads a reply of `kReplySize` bytes.
TimestampReply ReadReply(const void* bytes);

}  // namespace camclock::icmp
