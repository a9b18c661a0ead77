#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace camclock::test {

/// An RTSP server on a free port of the loopback interface that misbehaves in ways that are written down: it
/// answers each method with what its script says, and plays packets interleaved with the connection (RFC
/// 2326, 10.12). Every connection has a thread; the destructor ends them all.
class ScriptedRtspServer {
public:
    /// One client that has asked to PLAY.
    class Player {
    public:
        Player(int socket, std::mutex& writing, const std::atomic<bool>& ending, int session)
            : session_(session)
            , socket_(socket)
            , writing_(writing)
            , ending_(ending) {}

        /// False when the client, or the server, has gone.
        bool SendRtp(const std::vector<std::uint8_t>& packet) { return _Send(0, packet); }
        bool SendRtcp(const std::vector<std::uint8_t>& packet) { return _Send(1, packet); }

        /// Waits until then; false when there is no sense in going on.
        bool WaitUntil(std::chrono::steady_clock::time_point time) const;

        /// Counts the sessions of this server, from 1.
        int Session() const { return session_; }

    private:
        bool _Send(std::uint8_t channel, const std::vector<std::uint8_t>& packet);

        const int session_;
        const int socket_;
        std::mutex& writing_;
        const std::atomic<bool>& ending_;
    };

    struct Script {
        std::string sdp;
        std::map<std::string, std::string> status;  ///< "DESCRIBE" -> "404 Not Found"
        std::map<std::string, std::string>
            headers;                        ///< more header lines of a method's answer, each with CRLF
        std::string silentFrom;             ///< this method and all behind it get no answer
        bool refusesUdp = false;            ///< 461 for a transport that is not interleaved
        std::function<void(Player&)> play;  ///< when it returns the connection is closed
    };

    explicit ScriptedRtspServer(Script script);
    ~ScriptedRtspServer();

    ScriptedRtspServer(const ScriptedRtspServer&) = delete;
    ScriptedRtspServer& operator=(const ScriptedRtspServer&) = delete;

    std::string Url() const;
    int Port() const { return port_; }

    /// Requests of a method so far.
    int Requests(const std::string& method) const;

private:
    void _Accept();
    void _Serve(int socket);
    bool _Answer(int socket, const std::string& request, std::thread& player, std::mutex& writing,
                 std::atomic<bool>& gone);

    const Script script_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> ending_{false};
    std::atomic<int> sessions_{0};
    mutable std::mutex mutex_;  // guards the two below
    std::map<std::string, int> requests_;
    std::list<std::thread> connections_;
    std::thread accepting_;
};

}  // namespace camclock::test
