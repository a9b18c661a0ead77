#include "apps/camclock/sources/HostProbe.h"

#include <camclock/Receiver.h>

#include <fmt/format.h>

#include <system_error>
#include <utility>

namespace camclock::app {
HostProbe::HostProbe(std::string host)
    : host_(std::move(host)) {}

std::optional<Failure> HostProbe::MissingRight() {
    RawSocket socket;
    if (socket.CreateSocket("127.0.0.1", 0))
        return std::nullopt;
    return Failure{ExitCode::kNoRight, "measuring with ICMP needs a raw socket, which this user may not open",
                   "run it as root, or give the program the right: setcap cap_net_raw+ep camclock"};
}

std::optional<Failure> HostProbe::_CheckHost() const {
    RawSocket socket;
    if (socket.ResolveAddress(host_, 0))
        return std::nullopt;
    if (host_.find(':') != std::string::npos)
        return Failure{ExitCode::kNotReachable, fmt::format("{}: ICMP time stamps need IPv4", host_),
                       "write the camera's IPv4 address"};
    return Failure{ExitCode::kNotReachable, fmt::format("{}: no IPv4 address is known for this host", host_),
                   "look at its spelling, or write its address"};
}

ProbeOutcome HostProbe::Run(const ProbeSettings& settings) {
    ProbeOutcome outcome;
    outcome.failure = MissingRight();
    if (!outcome.failure)
        outcome.failure = _CheckHost();
    if (outcome.failure)
        return outcome;
    TimeProbe probe("");  // with a record of its own trouble
    outcome.result =
        probe.Probe(host_, settings.requests, settings.timeout_ms, settings.expectedDifference_ms);
    outcome.at_host = receiver::Now();
    if (outcome.result.uncertainty >= 0.0)
        return outcome;
    if (!probe.BadReply().empty())
        outcome.failure = Failure{
            ExitCode::kBadReply,
            fmt::format("{}: what it answers is no usable ICMP time stamp ({})", host_, probe.BadReply()),
            "if other ICMP traffic reaches this host, try again; else leave ICMP out"};
    else if (probe.SendError() != 0)
        outcome.failure = Failure{ExitCode::kNotReachable,
                                  fmt::format("{}: no request could be sent ({})", host_,
                                              std::system_category().message(probe.SendError())),
                                  "look at the address and at this host's routes"};
    else
        outcome.failure =
            Failure{ExitCode::kNoReply,
                    fmt::format("{}: no answer to {} ICMP time-stamp requests within {} ms each", host_,
                                settings.requests, settings.timeout_ms),
                    "a firewall may drop them, or the camera not know them"};
    return outcome;
}

}  // namespace camclock::app
