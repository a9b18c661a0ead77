#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace camclock::test {

// Answers to an ICMP Timestamp message as a raw socket delivers them, IPv4 header in front: a good one, and
// others that are spoilt in one way each. Checksums are right, so that they can also go over a wire.

using Bytes = std::vector<std::uint8_t>;
using Ip = std::array<std::uint8_t, 4>;

inline constexpr std::uint8_t kIcmp = 1;

inline void PutNetworkOrder(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.at(offset++) = static_cast<std::uint8_t>(value >> shift);
}

/// Fills the checksum of RFC 1071 over `length` bytes from `begin` into the field at `field`.
inline void PutChecksum(Bytes& bytes, std::size_t begin, std::size_t length, std::size_t field) {
    bytes.at(field) = bytes.at(field + 1) = 0;
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < length; i += 2)
        sum += std::uint32_t{bytes.at(begin + i)} << 8 | (i + 1 < length ? bytes.at(begin + i + 1) : 0u);
    while (sum >> 16 != 0)
        sum = (sum & 0xFFFF) + (sum >> 16);
    bytes.at(field) = static_cast<std::uint8_t>(~sum >> 8);
    bytes.at(field + 1) = static_cast<std::uint8_t>(~sum);
}

/// An IPv4 datagram (RFC 791, 3.1); `options` is a multiple of four bytes.
inline Bytes Datagram(const Ip& from, const Ip& to, std::uint8_t protocol, const Bytes& payload,
                      const Bytes& options = {}) {
    const std::size_t headerSize = 20 + options.size();
    const std::size_t size = headerSize + payload.size();
    Bytes bytes(20, 0);
    bytes[0] = static_cast<std::uint8_t>(0x40 | headerSize / 4);
    bytes[2] = static_cast<std::uint8_t>(size >> 8);
    bytes[3] = static_cast<std::uint8_t>(size);
    bytes[8] = 64;  // time to live
    bytes[9] = protocol;
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[12 + i] = from[i];
        bytes[16 + i] = to[i];
    }
    bytes.insert(bytes.end(), options.begin(), options.end());
    PutChecksum(bytes, 0, headerSize, 10);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

/// The ICMP message alone: the request's identifier, sequence number and
/// originate time come back as they were.
inline Bytes ReplyMessage(const Bytes& request, std::uint32_t transmit_ms) {
    Bytes message = request;
    message.at(0) = 14;
    PutNetworkOrder(message, 12, transmit_ms);
    PutNetworkOrder(message, 16, transmit_ms);
    PutChecksum(message, 0, message.size(), 2);
    return message;
}

inline constexpr Ip kCameraIp{10, 77, 0, 2};
inline constexpr Ip kHostIp{10, 77, 0, 1};

/// What a camera answers whose clock stands at `transmit_ms` after midnight UTC.
inline Bytes GoodReply(const Bytes& request, std::uint32_t transmit_ms) {
    return Datagram(kCameraIp, kHostIp, kIcmp, ReplyMessage(request, transmit_ms));
}

/// 44 bytes: the IPv4 header carries four bytes of options, three times "no operation" and "end".
inline Bytes ReplyWithOptions(const Bytes& request, std::uint32_t transmit_ms) {
    return Datagram(kCameraIp, kHostIp, kIcmp, ReplyMessage(request, transmit_ms), {1, 1, 1, 0});
}

/// The last byte is missing.
inline Bytes ShortReply(const Bytes& request, std::uint32_t transmit_ms) {
    Bytes message = ReplyMessage(request, transmit_ms);
    message.pop_back();
    PutChecksum(message, 0, message.size(), 2);
    return Datagram(kCameraIp, kHostIp, kIcmp, message);
}

inline Bytes ReplyOfProtocol(const Bytes& request, std::uint32_t transmit_ms, std::uint8_t protocol) {
    return Datagram(kCameraIp, kHostIp, protocol, ReplyMessage(request, transmit_ms));
}

inline Bytes ReplyOfType(const Bytes& request, std::uint32_t transmit_ms, std::uint8_t type) {
    Bytes message = ReplyMessage(request, transmit_ms);
    message.at(0) = type;
    PutChecksum(message, 0, message.size(), 2);
    return Datagram(kCameraIp, kHostIp, kIcmp, message);
}

/// The identifier's first byte is another one.
inline Bytes ReplyWithOtherIdentifier(const Bytes& request, std::uint32_t transmit_ms) {
    Bytes message = ReplyMessage(request, transmit_ms);
    message.at(4) ^= 1;
    PutChecksum(message, 0, message.size(), 2);
    return Datagram(kCameraIp, kHostIp, kIcmp, message);
}

}  // namespace camclock::test
