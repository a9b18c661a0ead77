#include "receiver/RtpReader.h"

#include "receiver/Bytes.h"

namespace camclock::receiver {

std::optional<RtpPacket> ReadRtp(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kFixedHeader = 12;
    constexpr unsigned kVersion2 = 0x80;
    if (size < kFixedHeader || (data[0] & 0xC0U) != kVersion2 || IsRtcpType(data[1]))
        return std::nullopt;
    const bool hasPadding = (data[0] & 0x20U) != 0;
    const bool hasExtension = (data[0] & 0x10U) != 0;
    std::size_t start = kFixedHeader + 4 * std::size_t{data[0] & 0x0FU};  // CSRC list
    if (hasExtension) {
        if (size < start + 4)
            return std::nullopt;
        start += 4 + 4 * std::size_t{Load16(data + start + 2)};  // its length counts words behind these
    }
    if (size < start)
        return std::nullopt;
    std::size_t end = size;
    if (hasPadding) {
        const std::size_t padding = size > start ? data[size - 1] : 0;  // counts itself
        if (padding == 0 || padding > size - start)
            return std::nullopt;
        end -= padding;
    }

    RtpPacket packet;
    packet.RTP_ts = Load32(data + 4);
    packet.SSRC = Load32(data + 8);
    packet.seqnum = Load16(data + 2);
    packet.payloadType = data[1] & 0x7FU;
    packet.marker = (data[1] & 0x80U) != 0;
    packet.payload = data + start;
    packet.size = end - start;
    return packet;
}

}  // namespace camclock::receiver
