#pragma once

#include "probe/SocketPlatform.h"
#include "support/IcmpReplies.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace camclock::test {

/// A platform without a network: a program that links ScriptedSockets.cpp gets these sockets instead of the
/// system's. What they do is told here; what was asked of them is kept.
struct ScriptedSockets {
    /// A datagram that can be read, or an error in its place.
    struct Incoming {
        Bytes bytes;
        Ip from = kCameraIp;
        int error = 0;
    };
    struct Sent {
        Bytes bytes;
        sockets::Address to;
    };

    bool startsUp = true;
    std::map<std::string, Ip> addresses{{"10.77.0.2", kCameraIp}};  // what the text conversion knows
    std::map<std::string, Ip> names{{"camera", kCameraIp}};         // what the name look-up knows
    std::uint16_t familyOfNames = sockets::kInternetFamily;
    bool opens = true;
    int sendError = 0;
    bool waitFails = false;
    bool shutsDown = true;
    int closeError = 0;
    /// Runs for every datagram that was sent; what it returns arrives, in this order.
    std::function<std::vector<Incoming>(const Bytes& request)> answer;

    std::deque<Incoming> inbox;
    std::vector<Sent> sent;
    std::vector<std::uint32_t> waits_ms;
    int startUps = 0;
    int cleanUps = 0;
    int opened = 0;
    int closed = 0;

    /// The one script, made afresh by `Reset`. Whoever uses it while probes run holds `Lock`.
    static ScriptedSockets& Now();
    static std::recursive_mutex& Lock();
    static void Reset() { Now() = ScriptedSockets(); }
};

inline constexpr int kTooLargeError = 10040;

}  // namespace camclock::test
