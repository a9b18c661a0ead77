#include "apps/camclock/sources/HostProbe.h"

#include <camclock/Receiver.h>

#include <fmt/format.h>
#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <array>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace camclock::app {
namespace {

bool StartsWith(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

/// The last complaint of the library while this lives: the library tells no reason but in its log.
class Complaints : public log4cpp::AppenderSkeleton {
public:
    Complaints()
        : AppenderSkeleton("complaints of the probe") {
        for (Listened& listened : categories_) {
            listened.priority = listened.category->getPriority();
            listened.category->setPriority(log4cpp::Priority::INFO);
            listened.category->addAppender(*this);
        }
    }
    ~Complaints() override {
        for (const Listened& listened : categories_) {
            listened.category->removeAppender(this);
            listened.category->setPriority(listened.priority);
        }
    }
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* /*layout*/) override {}

    /// Of a datagram that came and was no answer; empty if none did.
    const std::string& Reply() const { return reply_; }
    /// The error number of a request that could not be sent; 0 if all could.
    int SendError() const { return sendError_; }

protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        constexpr std::string_view kNotSent = "Error sending Packet : ";
        const std::string& message = event.message;
        if (StartsWith(message, kNotSent))
            sendError_ = std::atoi(message.c_str() + kNotSent.size());
        else if (StartsWith(message, "Wrong size") || StartsWith(message, "Error, got packet"))
            reply_ = message;
    }

private:
    struct Listened {
        log4cpp::Category* category;
        log4cpp::Priority::Value priority;
    };
    std::array<Listened, 2> categories_{{
        {&log4cpp::Category::getInstance("RTSP.TimeProbe"), log4cpp::Priority::NOTSET},
        {&log4cpp::Category::getInstance("RTSP.RawSocket"), log4cpp::Priority::NOTSET},
    }};
    std::string reply_;
    int sendError_ = 0;
};

}  // namespace

HostProbe::HostProbe(std::string host)
    : host_(std::move(host))
    , probe_("") {}

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
    const Complaints complaints;
    outcome.result =
        probe_.Probe(host_, settings.requests, settings.timeout_ms, settings.expectedDifference_ms);
    outcome.at_host = receiver::Now();
    if (outcome.result.uncertainty >= 0.0)
        return outcome;
    if (!complaints.Reply().empty())
        outcome.failure = Failure{
            ExitCode::kBadReply,
            fmt::format("{}: what it answers is no usable ICMP time stamp ({})", host_, complaints.Reply()),
            "if other ICMP traffic reaches this host, try again; else leave ICMP out"};
    else if (complaints.SendError() != 0)
        outcome.failure = Failure{ExitCode::kNotReachable,
                                  fmt::format("{}: no request could be sent ({})", host_,
                                              std::system_category().message(complaints.SendError())),
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
