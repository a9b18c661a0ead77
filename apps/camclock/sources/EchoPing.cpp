#include "apps/camclock/sources/EchoPing.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>

namespace camclock::app {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kEcho = 8;  // RFC 792, page 14
constexpr std::uint8_t kEchoReply = 0;
constexpr int kTriesBeforeGivingUp = 3;
constexpr std::chrono::seconds kLongestWait{1};
constexpr std::chrono::milliseconds kBetween{20};

/// Type, code, checksum, identifier, sequence number, and eight bytes that come back.
using Message = std::array<std::uint8_t, 16>;

void Put16(Message& message, std::size_t offset, unsigned int value) {
    message.at(offset) = static_cast<std::uint8_t>(value >> 8);
    message.at(offset + 1) = static_cast<std::uint8_t>(value);
}

/// With its checksum (RFC 1071). An unprivileged socket puts an identifier of its own into it.
Message MakeEcho(unsigned int identifier, unsigned int sequence) {
    Message message{kEcho};
    Put16(message, 4, identifier);
    Put16(message, 6, sequence);
    std::memcpy(&message[8], "camclock", 8);
    unsigned int sum = 0;
    for (std::size_t i = 0; i < message.size(); i += 2)
        sum += (static_cast<unsigned int>(message.at(i)) << 8) + message.at(i + 1);
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum += sum >> 16;
    Put16(message, 2, ~sum & 0xFFFF);
    return message;
}

/// One ICMP socket.
class EchoSocket {
public:
    explicit EchoSocket(unsigned int identifier)
        : identifier_(identifier)
        , socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP)) {
        if (socket_ >= 0)
            return;
        raw_ = true;
        socket_ = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
    }
    ~EchoSocket() {
        if (socket_ >= 0)
            close(socket_);
    }
    EchoSocket(const EchoSocket&) = delete;
    EchoSocket& operator=(const EchoSocket&) = delete;

    bool IsOpen() const { return socket_ >= 0; }

    /// From now on it talks with this host only.
    bool Connect(const addrinfo& address) const {
        return connect(socket_, address.ai_addr, address.ai_addrlen) == 0;
    }

    /// One round trip; nothing when there is no answer in time.
    std::optional<std::chrono::nanoseconds> Exchange(unsigned int sequence) const {
        const Message echo = MakeEcho(identifier_, sequence);
        const Clock::time_point sent = Clock::now();
        if (send(socket_, echo.data(), echo.size(), 0) != static_cast<ssize_t>(echo.size()))
            return std::nullopt;
        const Clock::time_point deadline = sent + kLongestWait;
        for (Clock::time_point now = sent; now < deadline; now = Clock::now()) {
            pollfd waiting{socket_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
            if (poll(&waiting, 1, static_cast<int>(left.count()) + 1) <= 0)
                continue;
            std::array<std::uint8_t, 256> reply{};
            const ssize_t size = recv(socket_, reply.data(), reply.size(), MSG_DONTWAIT);
            const Clock::time_point received = Clock::now();
            if (size > 0 && _IsAnswer(reply.data(), static_cast<std::size_t>(size), echo))
                return received - sent;
        }
        return std::nullopt;
    }

private:
    /// A raw socket hands over the IPv4 header, too, and other programs' answers, and on the loopback
    /// interface the requests.
    bool _IsAnswer(const std::uint8_t* bytes, std::size_t size, const Message& echo) const {
        const std::size_t header = raw_ ? std::size_t{4} * (bytes[0] & 15U) : 0;
        if (size < header + echo.size())
            return false;
        const std::uint8_t* reply = bytes + header;
        const std::size_t same = raw_ ? 4 : 6;  // from the identifier on, or from the sequence number on
        return reply[0] == kEchoReply &&
               std::equal(echo.begin() + static_cast<std::ptrdiff_t>(same), echo.end(), reply + same);
    }

    unsigned int identifier_;
    bool raw_ = false;
    int socket_;
};

}  // namespace

EchoResult PingHost(const std::string& host, int requests, const std::function<bool()>& stop) {
    EchoResult result;
    const EchoSocket socket(static_cast<unsigned int>(getpid()) & 0xFFFF);
    if (!socket.IsOpen()) {
        result.trouble = "this user may open no ICMP socket: run it as root, or allow it in "
                         "net.ipv4.ping_group_range";
        return result;
    }
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0) {
        result.trouble = "no IPv4 address is known for this host";
        return result;
    }
    const bool connected = socket.Connect(*found);
    freeaddrinfo(found);
    if (!connected) {
        result.trouble = "there is no way to this host";
        return result;
    }
    while (result.sent < requests && !stop()) {
        if (result.sent > 0)
            std::this_thread::sleep_for(kBetween);
        const auto roundTrip = socket.Exchange(static_cast<unsigned int>(++result.sent));
        if (roundTrip) {
            ++result.answered;
            result.least = std::min(result.least.value_or(*roundTrip), *roundTrip);
        } else if (result.answered == 0 && result.sent >= kTriesBeforeGivingUp) {
            break;
        }
    }
    if (result.answered == 0)
        result.trouble = "the host does not answer pings";
    return result;
}

}  // namespace camclock::app
