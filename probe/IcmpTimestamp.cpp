#include "probe/IcmpTimestamp.h"

#include <cstring>

namespace camclock::icmp {
namespace {

template <class Value>
Value HostOrder(const void* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const std::uint8_t*>(bytes) + offset, sizeof value);
    return value;
}

std::uint32_t NetworkOrder(const void* bytes, std::size_t offset) {
    const std::uint8_t* const place = static_cast<const std::uint8_t*>(bytes) + offset;
    return std::uint32_t{place[0]} << 24 | std::uint32_t{place[1]} << 16 | std::uint32_t{place[2]} << 8 |
           place[3];
}

}  // namespace

std::uint16_t Checksum(const TimestampRequest& message) {
    std::uint32_t sum = 0;
    for (std::size_t offset = 0; offset < message.size(); offset += 2)
        sum += HostOrder<std::uint16_t>(message.data(), offset);
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum += sum >> 16;
    return static_cast<std::uint16_t>(~sum);
}

TimestampRequest MakeRequest(std::uint16_t identifier, std::uint16_t sequence, std::uint32_t originate_ms) {
    TimestampRequest message{};  // code, checksum, receive and transmit times are 0
    message[0] = kTimestamp;
    std::memcpy(&message[4], &identifier, sizeof identifier);
    std::memcpy(&message[6], &sequence, sizeof sequence);
    std::memcpy(&message[8], &originate_ms, sizeof originate_ms);
    const std::uint16_t checksum = Checksum(message);
    std::memcpy(&message[2], &checksum, sizeof checksum);
    return message;
}

TimestampReply ReadReply(const void* bytes) {
    TimestampReply reply{};
    reply.protocol = HostOrder<std::uint8_t>(bytes, 9);
    reply.type = HostOrder<std::uint8_t>(bytes, 20);
    reply.identifier = HostOrder<std::uint16_t>(bytes, 24);
    reply.originate_ms = HostOrder<std::uint32_t>(bytes, 28);
    reply.transmit_ms = NetworkOrder(bytes, 36);
    return reply;
}

}  // namespace camclock::icmp
