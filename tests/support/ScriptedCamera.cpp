#include "support/ScriptedCamera.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace camclock::test {
namespace {

constexpr std::size_t kLinkHeader = 14;
constexpr std::array<std::uint8_t, kLinkHeader> kToHost{0x02, 0, 0, 0,    0x77, 0x01, 0x02,
                                                        0,    0, 0, 0x77, 0x02, 0x08, 0x00};

/// A socket for all IPv4 frames of the camera's device; it stays in the namespace in which it was made.
int OpenPacketSocket() {
    const int descriptor = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IP));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(TwoNamespaces::kCameraDevice));
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        std::perror("the scripted camera's socket");
    return descriptor;
}

}  // namespace

ScriptedCamera::ScriptedCamera(const TwoNamespaces& network, Script script)
    : script_(std::move(script))
    , stop_(eventfd(0, EFD_CLOEXEC)) {
    std::thread([&] {
        network.EnterCamera();
        socket_ = OpenPacketSocket();
    }).join();
    if (socket_ < 0)
        throw std::runtime_error("no packet socket for the scripted camera");
    thread_ = std::thread(&ScriptedCamera::_Run, this);
}

ScriptedCamera::~ScriptedCamera() {
    eventfd_write(stop_, 1);
    thread_.join();
    close(socket_);
    close(stop_);
}

std::vector<Bytes> ScriptedCamera::Received() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return received_;
}

void ScriptedCamera::_Run() {
    for (;;) {
        std::array<pollfd, 2> entries{{{socket_, POLLIN, 0}, {stop_, POLLIN, 0}}};
        poll(entries.data(), entries.size(), -1);
        if (entries[1].revents != 0)
            return;
        Bytes frame(2'000);
        sockaddr_ll from{};
        socklen_t length = sizeof from;
        const ssize_t count =
            recvfrom(socket_, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        // An IPv4 datagram with a header of 20 bytes that carries a Timestamp
        // message, and not one of our own.
        if (count < static_cast<ssize_t>(kLinkHeader + 28) || from.sll_pkttype == PACKET_OUTGOING ||
            frame[kLinkHeader] != 0x45 || frame[kLinkHeader + 9] != kIcmp || frame[kLinkHeader + 20] != 13)
            continue;
        frame.resize(static_cast<std::size_t>(count));
        _Answer(Bytes(frame.begin() + kLinkHeader, frame.end()));
    }
}

void ScriptedCamera::_Answer(const Bytes& datagram) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        received_.push_back(datagram);
    }
    const Bytes request(datagram.begin() + 20, datagram.end());
    if (!script_)
        return;
    for (const Bytes& reply : script_(request)) {
        Bytes frame(kToHost.begin(), kToHost.end());
        frame.insert(frame.end(), reply.begin(), reply.end());
        send(socket_, frame.data(), frame.size(), 0);
    }
}

}  // namespace camclock::test
