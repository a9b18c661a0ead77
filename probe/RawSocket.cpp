#include "probe/RawSocket.h"

#include "logging/Categories.h"
#include "logging/DirectMessage.h"
#include "logging/Text.h"

#include <cstdio>
#include <sstream>

namespace camclock {
namespace {

/// One line to "RTSP.RawSocket", made only if it is wanted.
template <class... Parts>
void Log(const Parts&... parts) {
    if (InfoEnabled(categories::RawSocket()))
        WriteInfo(categories::RawSocket(), Text(parts...));
}

/// A pointer as a stream writes it, which differs from platform to platform.
std::string PointerText(const void* pointer) {
    std::ostringstream stream;
    stream << pointer;
    return stream.str();
}

}  // namespace

RawSocket::RawSocket() {
    // The names of Winsock stand in the log on every platform: whoever reads it finds the same lines.
    Log("Initialising Winsock...");
    // Deliberate: the address of the standard error stream stands where an error number would, and success is
    // reported in any case (RawSocketSteps.AFailedStartUpIsOnlyWrittenToTheLog).
    if (!sockets::StartUp() && InfoEnabled(categories::RawSocket()))
        Log("WSAStartup() failed", PointerText(stderr));
    Log("Initialised successfully.");
}

RawSocket::~RawSocket() {
    ReleaseSocket();
    Log("Releasing Winsock.");
    sockets::CleanUp();
}

bool RawSocket::CreateSocket(const std::string& host, std::uint16_t port) {
    if (!ResolveAddress(host, port))
        return false;
    Log("Creating Raw TCP Socket...");
    if (socket_ != sockets::kNoSocket) {
        Log("Socket already exists.");
        return true;
    }
    socket_ = sockets::OpenRawIcmp();
    if (socket_ == sockets::kNoSocket) {
        Log("Creation of raw socket failed. (Running with administrtative priveleges is required.)");
        return false;
    }
    Log("Raw TCP Socket Created successfully.");
    return true;
}

bool RawSocket::ResolveAddress(const std::string& host, std::uint16_t port) {
    Log("Resolving address...");
    address_ = {};
    if (sockets::ParseAddress(host, address_.ip)) {
        address_.family = sockets::kInternetFamily;
    } else if (!sockets::LookUpHost(host, address_)) {
        Log("Error resolving hostname.");
        return false;
    }
    address_.port = port;
    Log("Host adress set to: ", address_.ip[0], ".", address_.ip[1], ".", address_.ip[2], ".", address_.ip[3],
        " port: ", port);
    return true;
}

bool RawSocket::Write(const void* data, std::size_t length) {
    if (socket_ == sockets::kNoSocket) {
        Log("Write to an invalid socket attempted");
        return false;
    }
    Log("Sending packet...");
    const sockets::Transfer sent = sockets::SendTo(socket_, data, length, address_);
    if (sent.count < 0) {
        sendError_ = sent.error;
        Log("Error sending Packet : ", sent.error);
    }
    Log("Packet sent.");  // Deliberate: also when it was not
                          // (RawSocketSteps.AFailedSendIsFollowedByPacketSent).
    return sent.count >= 0;
}

bool RawSocket::WaitForReadyRead(std::uint32_t timeout_ms) const {
    if (socket_ == sockets::kNoSocket) {
        Log("WaitForReadyRead on an invalid socket attempted");
        return false;
    }
    if (sockets::WaitReadable(socket_, timeout_ms) != 0)
        return true;
    Log("WaitForReadyRead Timeout");
    return false;
}

std::int32_t RawSocket::Read(void* buffer, std::size_t size) {
    if (socket_ == sockets::kNoSocket) {
        Log("Read on an invalid socket attempted");
        return 0;
    }
    Log("Reading data...");
    const sockets::Transfer received = sockets::ReceiveFrom(socket_, buffer, size, address_);
    if (received.count < 0) {
        Log("Error reading reply : ", received.error);
        if (sockets::IsTooLarge(received.error))
            Log("buffer too small");
        return -1;
    }
    Log("Bytes read: ", received.count);
    return received.count;
}

void RawSocket::ReleaseSocket() {
    if (socket_ == sockets::kNoSocket)
        return;
    Log("Releasing socket.");
    if (!sockets::ShutDown(socket_))
        Log("Error shutting down socket");
    if (const int error = sockets::Close(socket_); error != 0) {
        Log("closesocket failed with error = ", error);
        return;
    }
    socket_ = sockets::kNoSocket;
}

}  // namespace camclock
