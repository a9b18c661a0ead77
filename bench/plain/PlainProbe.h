#pragma once

#include "probe/TimeProbe.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace camclock::bench {

/// The ICMP timestamp exchange straight on the sockets: no log, no process clock, no names resolved.
inline ProbeResult PlainProbe(const char* address, int count, int timeout_ms) {
    const auto now_ms = [] {
        timeval time{};
        gettimeofday(&time, nullptr);
        return static_cast<std::uint32_t>(time.tv_sec % 86'400 * 1'000 + time.tv_usec / 1'000);
    };
    ProbeResult best;
    const int handle = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (handle < 0)
        return best;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = inet_addr(address);
    for (int i = 0; i < count; ++i) {
        std::uint8_t request[20] = {13};
        const auto identifier = static_cast<std::uint16_t>(std::rand());
        const auto sequence = static_cast<std::uint16_t>(i);
        const std::uint32_t originate = now_ms();
        std::memcpy(request + 4, &identifier, 2);
        std::memcpy(request + 6, &sequence, 2);
        std::memcpy(request + 8, &originate, 4);
        std::uint32_t sum = 0;
        for (int word = 0; word < 10; ++word) {
            std::uint16_t value = 0;
            std::memcpy(&value, request + 2 * word, 2);
            sum += value;
        }
        sum = (sum >> 16) + (sum & 0xFFFF);
        sum += sum >> 16;
        const auto checksum = static_cast<std::uint16_t>(~sum);
        std::memcpy(request + 2, &checksum, 2);
        if (sendto(handle, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&to), sizeof to) < 0)
            continue;
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(handle, &readable);
        timeval timeout{timeout_ms / 1'000, timeout_ms % 1'000 * 1'000};
        if (select(handle + 1, &readable, nullptr, nullptr, &timeout) != 1)
            continue;
        std::uint8_t reply[500] = {};
        const ssize_t size = recvfrom(handle, reply, sizeof reply, 0, nullptr, nullptr);
        const std::uint32_t returned = now_ms();
        std::uint16_t echoed = 0;
        std::memcpy(&echoed, reply + 24, 2);
        if (size != 40 || reply[20] != 14 || echoed != identifier)
            continue;
        std::uint32_t transmit = 0;
        std::memcpy(&transmit, reply + 36, 4);
        const double half = 0.5 * (static_cast<double>(returned) - originate);
        if (best.uncertainty < 0.0 || half < best.uncertainty)
            best = {originate + half - ntohl(transmit), half};
    }
    close(handle);
    return best;
}

}  // namespace camclock::bench
