#include "probe/SocketPlatform.h"

#include <algorithm>
#include <cstring>
#include <limits>

#if defined(_WIN32)
#ifndef _WINSOCK_DEPRECATED_NO_WARNINGS
#define _WINSOCK_DEPRECATED_NO_WARNINGS  // inet_addr and gethostbyname, whose results are wanted here
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#endif

namespace camclock::sockets {
namespace {

static_assert(AF_INET == kInternetFamily);
static_assert(sizeof(sockaddr_in) == sizeof(Address));

/// The first number of more than 31 bits is far above what a datagram can hold.
int Length(std::size_t length) {
    constexpr auto kMost = static_cast<std::size_t>((std::numeric_limits<int>::max)());
    return static_cast<int>((std::min)(length, kMost));
}

sockaddr_in ToSystem(const Address& address) {
    sockaddr_in system{};
    system.sin_family = static_cast<decltype(system.sin_family)>(address.family);
    system.sin_port = address.port;
    std::memcpy(&system.sin_addr, address.ip.data(), address.ip.size());
    return system;
}

Address FromSystem(const sockaddr_in& system) {
    Address address;
    address.family = static_cast<std::uint16_t>(system.sin_family);
    address.port = system.sin_port;
    std::memcpy(address.ip.data(), &system.sin_addr, address.ip.size());
    return address;
}

}  // namespace

bool ParseAddress(const std::string& text, std::array<std::uint8_t, 4>& ip) {
    const auto number = ::inet_addr(text.c_str());
    static_assert(sizeof number == sizeof ip);
    if (number == INADDR_NONE)
        return false;
    std::memcpy(ip.data(), &number, ip.size());
    return true;
}

#if defined(_WIN32)

bool StartUp() {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

void CleanUp() {
    ::WSACleanup();
}

bool LookUpHost(const std::string& name, Address& address) {
    const hostent* const found = ::gethostbyname(name.c_str());  // Winsock keeps one record for each thread
    if (found == nullptr || found->h_addr_list[0] == nullptr)
        return false;
    const auto length = static_cast<std::size_t>((std::max)(int{found->h_length}, 0));
    std::memcpy(address.ip.data(), found->h_addr_list[0], (std::min)(length, address.ip.size()));
    address.family = static_cast<std::uint16_t>(found->h_addrtype);
    return true;
}

Handle OpenRawIcmp() {
    const SOCKET socket = ::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    return socket == INVALID_SOCKET ? kNoSocket : static_cast<Handle>(socket);
}

Transfer SendTo(Handle socket, const void* data, std::size_t length, const Address& to) {
    const sockaddr_in system = ToSystem(to);
    const int count = ::sendto(static_cast<SOCKET>(socket), static_cast<const char*>(data), Length(length), 0,
                               reinterpret_cast<const sockaddr*>(&system), sizeof system);
    return count == SOCKET_ERROR ? Transfer{-1, ::WSAGetLastError()} : Transfer{count, 0};
}

int WaitReadable(Handle socket, std::uint32_t timeout_ms) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(static_cast<SOCKET>(socket), &readable);
    timeval timeOut{static_cast<long>(timeout_ms / 1000), static_cast<long>(timeout_ms % 1000 * 1000)};
    return ::select(static_cast<int>(socket), &readable, nullptr, nullptr, &timeOut);
}

Transfer ReceiveFrom(Handle socket, void* buffer, std::size_t size, Address& from) {
    sockaddr_in system = ToSystem(from);
    int addressLength = sizeof system;
    const int count = ::recvfrom(static_cast<SOCKET>(socket), static_cast<char*>(buffer), Length(size), 0,
                                 reinterpret_cast<sockaddr*>(&system), &addressLength);
    const int error = count == SOCKET_ERROR ? ::WSAGetLastError() : 0;
    from = FromSystem(system);
    return {count == SOCKET_ERROR ? -1 : count, error};
}

bool IsTooLarge(int error) {
    return error == WSAEMSGSIZE;
}

bool ShutDown(Handle socket) {
    return ::shutdown(static_cast<SOCKET>(socket), SD_BOTH) == 0;
}

int Close(Handle socket) {
    return ::closesocket(static_cast<SOCKET>(socket)) == SOCKET_ERROR ? ::WSAGetLastError() : 0;
}

#else

namespace {

int Descriptor(Handle socket) {
    return static_cast<int>(socket);
}

}  // namespace

bool StartUp() {
    return true;  // sockets are always there
}

void CleanUp() {}

bool LookUpHost(const std::string& name, Address& address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_RAW;  // one entry for each address
    addrinfo* entries = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &entries) != 0)
        return false;
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(entries, &::freeaddrinfo);
    if (entries == nullptr || entries->ai_addrlen != sizeof(sockaddr_in))
        return false;
    sockaddr_in first{};
    std::memcpy(&first, entries->ai_addr, sizeof first);
    const Address found = FromSystem(first);
    address.ip = found.ip;
    address.family = found.family;
    return true;
}

Handle OpenRawIcmp() {
    const int descriptor = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
    return descriptor < 0 ? kNoSocket : static_cast<Handle>(descriptor);
}

Transfer SendTo(Handle socket, const void* data, std::size_t length, const Address& to) {
    const sockaddr_in system = ToSystem(to);
    for (;;) {
        const ssize_t count = ::sendto(Descriptor(socket), data, static_cast<std::size_t>(Length(length)), 0,
                                       reinterpret_cast<const sockaddr*>(&system), sizeof system);
        if (count >= 0)
            return {static_cast<std::int32_t>(count), 0};
        if (errno != EINTR)
            return {-1, errno};
    }
}

// Not select, whose set ends at descriptor 1,023: a recorder has more open.
int WaitReadable(Handle socket, std::uint32_t timeout_ms) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    constexpr auto kMost = static_cast<std::int64_t>((std::numeric_limits<int>::max)());
    std::int64_t left_ms = timeout_ms;
    for (;;) {
        pollfd entry{Descriptor(socket), POLLIN, 0};
        const int result = ::poll(&entry, 1, static_cast<int>((std::min)(left_ms, kMost)));
        if (result > 0 || (result < 0 && errno != EINTR))
            return result;
        // Rounded up, so that the wait never ends before its time.
        left_ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left_ms <= 0) {
            if (result == 0)
                return 0;
            left_ms = 0;  // interrupted at the very end: look once more, without waiting
        }
    }
}

Transfer ReceiveFrom(Handle socket, void* buffer, std::size_t size, Address& from) {
    for (;;) {
        sockaddr_in system{};
        iovec part{buffer, static_cast<std::size_t>(Length(size))};
        msghdr message{};
        message.msg_name = &system;
        message.msg_namelen = sizeof system;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const ssize_t count = ::recvmsg(Descriptor(socket), &message, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {-1, errno};
        if (message.msg_namelen == sizeof system)
            from = FromSystem(system);
        if ((message.msg_flags & MSG_TRUNC) != 0)
            return {-1, EMSGSIZE};  // POSIX cuts the datagram and calls it a success
        return {static_cast<std::int32_t>(count), 0};
    }
}

bool IsTooLarge(int error) {
    return error == EMSGSIZE;
}

bool ShutDown(Handle socket) {
    return ::shutdown(Descriptor(socket), SHUT_RDWR) == 0;
}

int Close(Handle socket) {
    if (::close(Descriptor(socket)) == 0 || errno == EINTR)  // an interrupted close has closed all the same
        return 0;
    return errno;
}

#endif

}  // namespace camclock::sockets
