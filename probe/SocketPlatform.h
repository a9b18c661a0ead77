#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace camclock::sockets {

// What a raw ICMP socket asks of the operating system: Winsock 2 on Windows, POSIX sockets elsewhere. No
// other file knows which of the two it is. Nothing throws; error numbers are the platform's own
// (WSAGetLastError or errno).

/// A socket of the system, or `kNoSocket`.
using Handle = std::uintptr_t;
inline constexpr Handle kNoSocket = ~Handle{0};

/// An IPv4 destination or source, laid out as Winsock's `sockaddr_in`.
struct Address {
    std::uint16_t family = 0;
    std::uint16_t port = 0;
    std::array<std::uint8_t, 4> ip{};
    std::array<std::uint8_t, 8> zero{};
};
static_assert(sizeof(Address) == 16);

/// `AF_INET`, which is 2 on every platform.
inline constexpr std::uint16_t kInternetFamily = 2;

/// What a transfer came to: `count` bytes, or -1 and an error number.
struct Transfer {
    std::int32_t count = -1;
    int error = 0;
};

/// Starts the system's socket service for one user of it; each call is matched by one
/// of `CleanUp`, even if it fails.
[[nodiscard]] bool StartUp();
void CleanUp();

/// `inet_addr`: an address in dotted form, short forms such as "127.1" included. False for anything else, and
/// for 255.255.255.255, which that call cannot tell from a failure.
[[nodiscard]] bool ParseAddress(const std::string& text, std::array<std::uint8_t, 4>& ip);

/// The first address of a host's name, and its family. May ask the network;
/// safe from several threads at once.
[[nodiscard]] bool LookUpHost(const std::string& name, Address& address);

/// A new raw IPv4 socket for ICMP; `kNoSocket` when the system refuses it, as it does without administrative
/// rights. On POSIX systems, programs that the process starts do not inherit it; on Windows those do that are
/// started with inheritance of handles.
[[nodiscard]] Handle OpenRawIcmp();

/// Sends one datagram.
[[nodiscard]] Transfer SendTo(Handle socket, const void* data, std::size_t length, const Address& to);

/// Waits until something can be read: 0 after `timeout_ms` without it, another number otherwise, failures
/// included. An interruption by a signal does not lengthen or shorten the wait.
[[nodiscard]] int WaitReadable(Handle socket, std::uint32_t timeout_ms);

/// Reads one datagram and its sender. One that is larger than the buffer is an error, see `IsTooLarge`.
[[nodiscard]] Transfer ReceiveFrom(Handle socket, void* buffer, std::size_t size, Address& from);

/// Is this the error number of a datagram that is larger than the buffer?
[[nodiscard]] bool IsTooLarge(int error);

/// Ends both directions. False on failure; a POSIX system fails here for a socket that is not connected, as a
/// raw socket never is, and stops its traffic all the same.
[[nodiscard]] bool ShutDown(Handle socket);

/// Gives the socket back to the system: 0, or an error number.
[[nodiscard]] int Close(Handle socket);

}  // namespace camclock::sockets
