#pragma once

#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// Numbers of the network's byte order; the caller has checked that the bytes are there.
inline std::uint16_t Load16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

inline std::uint32_t Load32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(Load16(p)) << 16 | Load16(p + 2);
}

inline std::uint64_t Load64(const std::uint8_t* p) {
    return static_cast<std::uint64_t>(Load32(p)) << 32 | Load32(p + 4);
}

/// RFC 5761, 4: the second byte tells RTCP (packet types 192 to 223) from RTP on a port that carries both.
inline bool IsRtcpType(std::uint8_t secondByte) {
    return secondByte >= 192 && secondByte <= 223;
}

}  // namespace camclock::receiver
