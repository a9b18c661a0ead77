#pragma once

#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// One RTP packet (RFC 3550, 5.1) as it arrived. It does not own its payload.
struct RtpPacket {
    std::uint32_t RTP_ts = 0;
    std::uint32_t SSRC = 0;
    std::uint16_t seqnum = 0;
    std::uint8_t payloadType = 0;  ///< 0 to 127
    bool marker = false;
    const std::uint8_t* payload = nullptr;
    std::size_t size = 0;  ///< bytes of payload, without padding
};

/// The sender's part of one RTCP sender report (RFC 3550, 6.4.1).
struct SenderReport {
    std::uint32_t SSRC = 0;
    std::uint64_t NTP = 0;  ///< camera's clock: seconds since 1900 in the upper half, fraction in the lower
    std::uint32_t RTP_ts = 0;
};

}  // namespace camclock::receiver
