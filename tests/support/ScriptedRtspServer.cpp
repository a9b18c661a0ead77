#include "support/ScriptedRtspServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace camclock::test {
namespace {

constexpr int kPoll_ms = 20;

bool WriteAll(int socket, const void* data, std::size_t size) {
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = send(socket, bytes, size, MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

/// The value of a header line; empty when there is none.
std::string Header(const std::string& request, const std::string& name) {
    const std::size_t start = request.find("\r\n" + name + ":");
    if (start == std::string::npos)
        return "";
    const std::size_t value = request.find_first_not_of(' ', start + name.size() + 3);
    return request.substr(value, request.find("\r\n", value) - value);
}

}  // namespace

bool ScriptedRtspServer::Player::_Send(std::uint8_t channel, const std::vector<std::uint8_t>& packet) {
    std::vector<std::uint8_t> framed{'$', channel, static_cast<std::uint8_t>(packet.size() >> 8U),
                                     static_cast<std::uint8_t>(packet.size())};
    framed.insert(framed.end(), packet.begin(), packet.end());
    const std::lock_guard<std::mutex> guard(writing_);
    return !ending_ && WriteAll(socket_, framed.data(), framed.size());
}

bool ScriptedRtspServer::Player::WaitUntil(std::chrono::steady_clock::time_point time) const {
    while (!ending_ && std::chrono::steady_clock::now() < time)
        std::this_thread::sleep_until(
            std::min(time, std::chrono::steady_clock::now() + std::chrono::milliseconds(kPoll_ms)));
    return !ending_;
}

ScriptedRtspServer::ScriptedRtspServer(Script script)
    : script_(std::move(script)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);  // NOLINT: the sockets interface asks for it
    if (listener_ < 0 || bind(listener_, generic, size) != 0 || listen(listener_, 16) != 0 ||
        getsockname(listener_, generic, &size) != 0)
        throw std::runtime_error("no port for the scripted RTSP server");
    port_ = ntohs(address.sin_port);
    accepting_ = std::thread(&ScriptedRtspServer::_Accept, this);
}

ScriptedRtspServer::~ScriptedRtspServer() {
    ending_ = true;
    accepting_.join();
    close(listener_);
    for (std::thread& connection : connections_)
        connection.join();
}

std::string ScriptedRtspServer::Url() const {
    return "rtsp://127.0.0.1:" + std::to_string(port_) + "/video";
}

int ScriptedRtspServer::Requests(const std::string& method) const {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = requests_.find(method);
    return found == requests_.end() ? 0 : found->second;
}

void ScriptedRtspServer::_Accept() {
    while (!ending_) {
        pollfd waited{listener_, POLLIN, 0};
        if (poll(&waited, 1, kPoll_ms) <= 0)
            continue;
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            continue;
        const int on = 1;
        setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::lock_guard<std::mutex> guard(mutex_);
        connections_.emplace_back(&ScriptedRtspServer::_Serve, this, connection);
    }
}

void ScriptedRtspServer::_Serve(int socket) {
    std::string received;
    std::mutex writing;
    std::atomic<bool> gone{false};
    std::thread player;
    bool open = true;
    while (open && !ending_ && !gone) {
        pollfd waited{socket, POLLIN, 0};
        if (poll(&waited, 1, kPoll_ms) <= 0)
            continue;
        std::array<char, 4096> piece{};
        const ssize_t size = recv(socket, piece.data(), piece.size(), 0);
        if (size <= 0)
            break;
        received.append(piece.data(), static_cast<std::size_t>(size));
        for (;;) {
            if (received.size() >= 4 && received[0] == '$') {  // the client's own RTCP
                const std::size_t length = static_cast<std::uint8_t>(received[2]) * std::size_t{256} +
                                           static_cast<std::uint8_t>(received[3]) + 4;
                if (received.size() < length)
                    break;
                received.erase(0, length);
                continue;
            }
            const std::size_t end = received.find("\r\n\r\n");
            if (end == std::string::npos || !open)
                break;
            open = _Answer(socket, received.substr(0, end + 2), player, writing, gone);
            received.erase(0, end + 4);
        }
    }
    gone = true;
    shutdown(socket, SHUT_RDWR);
    if (player.joinable())
        player.join();
    close(socket);
}

bool ScriptedRtspServer::_Answer(int socket, const std::string& request, std::thread& player,
                                 std::mutex& writing, std::atomic<bool>& gone) {
    const std::string method = request.substr(0, request.find(' '));
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++requests_[method];
    }
    static const std::vector<std::string> order{"OPTIONS", "DESCRIBE", "SETUP", "PLAY"};
    const auto place = [](const std::string& name) {
        std::size_t i = 0;
        while (i < order.size() && order[i] != name)
            ++i;
        return i;
    };
    if (!script_.silentFrom.empty() && place(method) >= place(script_.silentFrom))
        return true;

    std::string status = "200 OK";
    std::string headers = "CSeq: " + Header(request, "CSeq") + "\r\n";
    std::string body;
    const std::string transport = Header(request, "Transport");
    if (const auto scripted = script_.status.find(method); scripted != script_.status.end())
        status = scripted->second;
    else if (method == "SETUP" && script_.refusesUdp && transport.find("interleaved") == std::string::npos)
        status = "461 Unsupported Transport";
    if (const auto more = script_.headers.find(method); more != script_.headers.end())
        headers += more->second;
    const bool good = status.substr(0, 3) == "200";
    if (method == "OPTIONS")
        headers += "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n";
    if (good && method == "DESCRIBE") {
        body = script_.sdp;
        headers += "Content-Type: application/sdp\r\n";
    }
    if (good && method == "SETUP")
        headers += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\nSession: 4711\r\n";
    if (good && method != "SETUP" && method != "OPTIONS" && method != "DESCRIBE")
        headers += "Session: 4711\r\n";
    if (!body.empty())
        headers += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    const std::string answer = "RTSP/1.0 " + status + "\r\n" + headers + "\r\n" + body;
    {
        const std::lock_guard<std::mutex> guard(writing);
        if (!WriteAll(socket, answer.data(), answer.size()))
            return false;
    }
    if (good && method == "PLAY" && script_.play && !player.joinable()) {
        const int session = ++sessions_;
        player = std::thread([this, socket, session, &writing, &gone] {
            Player playing(socket, writing, gone, session);
            script_.play(playing);
            gone = true;
        });
    }
    return method != "TEARDOWN";
}

}  // namespace camclock::test
