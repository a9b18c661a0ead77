// UdpRecorder URL SECONDS: the frames of an RTSP camera, over plain sockets, with their times of capture.
#include <camclock/Receiver.h>

#include <linux/sockios.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace receiver = camclock::receiver;
using namespace std::chrono;

/// Connected to `host` or, without one, bound to a port of this machine.
struct Socket {
    Socket(int type, const char* host, const std::string& port) {
        const addrinfo hints{AI_PASSIVE, AF_INET, type, 0, 0, nullptr, nullptr, nullptr};
        addrinfo* to = nullptr;
        if (getaddrinfo(host, port.c_str(), &hints, &to) != 0)
            throw std::runtime_error("the host is not known");
        number = socket(to->ai_family, type, 0);
        if ((host == nullptr ? bind : connect)(number, to->ai_addr, to->ai_addrlen) != 0)
            throw std::runtime_error("no connection, or no free port");
        freeaddrinfo(to);
    }
    ~Socket() { close(number); }

    std::string Receive() const {
        std::string bytes(65'536, '\0');
        const ssize_t size = recv(number, bytes.data(), bytes.size(), 0);
        return bytes.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0);
    }

    /// Of the last datagram: by the kernel's stamp, from the second one on, which no busy thread delays.
    camclock::TimePoint Arrival() const {
        timespec time{};
        if (ioctl(number, SIOCGSTAMPNS, &time) != 0)
            return receiver::Now();
        return receiver::FromSystem(system_clock::from_time_t(time.tv_sec) + nanoseconds(time.tv_nsec));
    }

    int number = -1;
};

int PortOf(const Socket& bound) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(bound.number, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

/// What stands behind `name` in `text`, up to one of `ends`; nothing where there is no such name.
std::string Behind(const std::string& name, const std::string& text, const char* ends) {
    const std::size_t at = text.find(name) == std::string::npos ? text.size() : text.find(name) + name.size();
    return text.substr(at, text.find_first_of(ends, at) - at);
}

/// One request of RTSP (RFC 2326) and its answer, body included.
std::string Ask(const Socket& control, const std::string& what, const std::string& header) {
    static int number = 0;
    const std::string line = what + " RTSP/1.0\r\nCSeq: " + std::to_string(++number) + "\r\n";
    const std::string request = line + header + "\r\n\r\n";
    send(control.number, request.data(), request.size(), MSG_NOSIGNAL);
    std::string answer;
    std::size_t end = 0;  // of its header
    while ((end = answer.find("\r\n\r\n")) == std::string::npos ||
           answer.size() < end + 4 + std::stoul("0" + Behind("\r\nContent-Length: ", answer, "\r"))) {
        const std::string more = control.Receive();
        if (more.empty())
            throw std::runtime_error("the camera has closed the connection");
        answer += more;
    }
    if (answer.rfind("RTSP/1.0 200", 0) != 0)
        throw std::runtime_error(what + ": " + Behind("RTSP/1.0 ", answer, "\r"));
    return answer;
}

int main(int argc, char** argv) try {
    if (argc != 3)
        throw std::runtime_error("usage: UdpRecorder rtsp://HOST[:PORT]/PATH SECONDS");
    const std::string url = argv[1];
    const std::string host = Behind("rtsp://", url, ":/");
    const std::string port = Behind("//" + host + ":", url, "/");
    const Socket control(SOCK_STREAM, host.c_str(), port.empty() ? "554" : port);
    const Socket rtp(SOCK_DGRAM, nullptr, "0");
    const std::string next = std::to_string(PortOf(rtp) + 1);
    const Socket rtcp(SOCK_DGRAM, nullptr, next);
    const std::string sdp = Ask(control, "DESCRIBE " + url, "Accept: application/sdp");
    const receiver::Format format = receiver::Format::FromSdp(sdp).at(0);
    receiver::Camera camera("gate 3");
    const auto stream = camera.AddStream("video", format, [](const receiver::Frame& frame) {
        const duration<double> captured = frame.captured_host.time_since_epoch();
        std::printf("%u captured at %.6f, trust %d\n", frame.rtp_ts, captured.count(), int(frame.trust));
    });
    const bool isWhole = format.control.find("://") != std::string::npos;
    const std::string ports = "client_port=" + std::to_string(PortOf(rtp)) + "-" + next;
    const std::string track = (isWhole ? "" : url + "/") + format.control;
    const std::string answer = Ask(control, "SETUP " + track, "Transport: RTP/AVP;unicast;" + ports);
    const std::string session = "Session: " + Behind("\r\nSession: ", answer, ";\r");
    Ask(control, "PLAY " + url, session);
    pollfd sockets[] = {{rtcp.number, POLLIN, 0}, {rtp.number, POLLIN, 0}};
    const auto end = steady_clock::now() + seconds(std::stoi(argv[2]));
    for (; steady_clock::now() < end; camera.Poll()) {
        poll(sockets, 2, 200);
        const std::string report = sockets[0].revents != 0 ? rtcp.Receive() : "";
        if (!report.empty())  // reports before packets
            stream->FeedRtcp(report.data(), report.size(), rtcp.Arrival());
        const std::string packet = sockets[1].revents != 0 ? rtp.Receive() : "";
        if (!packet.empty())
            stream->FeedRtp(packet.data(), packet.size(), rtp.Arrival());
    }
    Ask(control, "TEARDOWN " + url, session);
} catch (const std::exception& error) {
    return std::fprintf(stderr, "UdpRecorder: %s\n", error.what()), 1;
}
