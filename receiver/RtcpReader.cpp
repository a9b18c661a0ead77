#include "receiver/RtcpReader.h"

#include "receiver/Bytes.h"

namespace camclock::receiver {
namespace {

constexpr std::size_t kHeader = 4;
constexpr std::uint8_t kSenderReport = 200;
constexpr std::uint8_t kGoodbye = 203;

/// The size of the packet at the front, header included; 0 when it is broken.
std::size_t SizeOfPacket(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kVersion2 = 0x80;
    if (size < kHeader || (data[0] & 0xC0U) != kVersion2 || !IsRtcpType(data[1]))
        return 0;
    const std::size_t length = kHeader + 4 * std::size_t{Load16(data + 2)};
    return length <= size ? length : 0;
}

/// `size` without the padding that its last byte counts; 0 when that cannot be.
std::size_t WithoutPadding(const std::uint8_t* packet, std::size_t size) {
    const bool hasPadding = (packet[0] & 0x20U) != 0;
    if (!hasPadding)
        return size;
    const std::size_t padding = size > kHeader ? packet[size - 1] : 0;
    return padding != 0 && padding <= size - kHeader ? size - padding : 0;
}

bool ReadPacket(const std::uint8_t* packet, std::size_t size, RtcpContents& out) {
    const std::size_t end = WithoutPadding(packet, size);
    if (end == 0)
        return false;
    if (packet[1] == kSenderReport) {
        constexpr std::size_t kSenderInfo = 28;  // up to the octet count
        if (end < kSenderInfo)
            return false;
        out.reports.push_back({Load32(packet + 4), Load64(packet + 8), Load32(packet + 16)});
    } else if (packet[1] == kGoodbye) {
        const std::size_t count = packet[0] & 0x1FU;
        if (end < kHeader + 4 * count)
            return false;
        for (std::size_t i = 0; i < count; ++i)
            out.byes.push_back(Load32(packet + kHeader + 4 * i));
    }
    return true;
}

}  // namespace

bool ReadRtcp(const std::uint8_t* data, std::size_t size, RtcpContents& out) {
    out.reports.clear();
    out.byes.clear();
    std::size_t position = 0;
    while (position < size) {
        const std::size_t length = SizeOfPacket(data + position, size - position);
        if (length == 0 || !ReadPacket(data + position, length, out))
            break;
        position += length;
    }
    return position > 0;
}

}  // namespace camclock::receiver
