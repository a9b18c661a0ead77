#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace camclock::app {

/// What a host's answers to ICMP echo (RFC 792, page 14) tell.
struct EchoResult {
    int sent = 0;
    int answered = 0;
    std::optional<std::chrono::nanoseconds> least;  ///< round trip
    std::string trouble;                            ///< why there is no answer; empty when there is one
};

/// Sends so many echo requests over IPv4, one after the other, and waits a second at most for each answer; a
/// host that answers none of the first three is given up. It takes an unprivileged ICMP socket where the
/// kernel allows it (net.ipv4.ping_group_range), else a raw one (root or CAP_NET_RAW).
///
/// Waits; `stop` is asked before each request.
EchoResult PingHost(const std::string& host, int requests, const std::function<bool()>& stop);

}  // namespace camclock::app
