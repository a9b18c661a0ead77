#pragma once

#include "probe/SocketPlatform.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace camclock {

/// How does one talk ICMP to a host? One raw IPv4 socket together with the address that it sends to. Each
/// step writes a message to "RTSP.RawSocket".
///
/// Owned by whoever probes; not to be used from two threads at once.
///
///     RawSocket socket;
///     if (socket.CreateSocket("camera", 0) && socket.Write(request.data(), request.size()) &&
///         socket.WaitForReadyRead(300))
///         count = socket.Read(buffer.data(), buffer.size());
///
/// Opening one needs administrative rights (on Linux CAP_NET_RAW). Nothing throws.
class RawSocket {
public:
    /// Starts the platform's socket service for this object; a failure is only written to the log.
    RawSocket();

    /// Releases the socket, then the service.
    ~RawSocket();

    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    /// Resolves `host`, then opens the socket unless one is open. False when either fails.
    bool CreateSocket(const std::string& host, std::uint16_t port);

    /// Makes `host`, an address or a name, the destination. `port` is stored as
    /// it is, in the host's byte order.
    bool ResolveAddress(const std::string& host, std::uint16_t port);

    /// Sends one datagram to the destination. True when the system took it.
    bool Write(const void* data, std::size_t length);

    /// Waits until a datagram can be read, `timeout_ms` milliseconds at most; 0 looks without waiting.
    ///
    /// Deliberate: true when the wait itself fails; the read that follows tells the error
    /// (RawSocketSteps.AFailedWaitCountsAsReady).
    bool WaitForReadyRead(std::uint32_t timeout_ms) const;

    /// Reads one datagram, IPv4 header included, and returns its size: -1 on an error, which a datagram
    /// larger than `size` is, and 0 when no socket is open. Blocks until there is one.
    ///
    /// Deliberate: the sender becomes the destination of later calls of `Write`
    /// (RawSocketSteps.TheSenderReplacesTheDestination).
    std::int32_t Read(void* buffer, std::size_t size);

    /// The system's number for the error of the last `Write` that failed; 0 before one has.
    int SendError() const { return sendError_; }

    /// Closes the socket, if one is open.
    ///
    /// Deliberate: a socket that cannot be closed stays the object's own
    /// (RawSocketSteps.AFailedCloseKeepsTheSocket).
    void ReleaseSocket();

private:
    sockets::Handle socket_ = sockets::kNoSocket;
    sockets::Address address_;
    int sendError_ = 0;
};

}  // namespace camclock
