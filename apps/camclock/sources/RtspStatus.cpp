#include "apps/camclock/sources/RtspStatus.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>

namespace camclock::app {
namespace {

struct Meaning {
    unsigned int status;
    ExitCode code;
    const char* what;
    const char* advice;
};

constexpr const char* kAskTheManual = "ask the camera's manual for the path of its video";

constexpr std::array<Meaning, 16> kMeanings{{
    {400, ExitCode::kRefused, "the camera does not understand the request",
     "look at the URL; a gateway in between may expect another one"},
    {401, ExitCode::kUnauthorised, "unauthorised: the camera refuses these credentials",
     "give them with --user NAME and the password in CAMCLOCK_PASSWORD"},
    {403, ExitCode::kUnauthorised,
     "forbidden: the camera does not let this user, or this host, have the stream",
     "allow it in the camera's settings, or wait if too many wrong passwords have locked the user out"},
    {404, ExitCode::kNotFound, "not found: the camera has no stream at this path", kAskTheManual},
    {405, ExitCode::kRefused, "the camera does not allow a method that a stream needs",
     "the URL may be one for recording or announcing: ask the camera's manual"},
    {407, ExitCode::kUnauthorised, "unauthorised: a proxy wants credentials", "connect without the proxy"},
    {410, ExitCode::kNotFound, "not found: the stream at this path is gone for good", kAskTheManual},
    {451, ExitCode::kRefused, "the camera does not understand a parameter of the URL",
     "look at the query of the URL"},
    {453, ExitCode::kRefused, "the camera has not enough bandwidth for one more viewer",
     "close other viewers, or use a stream of a lower bit rate"},
    {454, ExitCode::kRefused, "the camera has forgotten the session",
     "it may have restarted, or end sessions too early: use --reconnect"},
    {455, ExitCode::kRefused, "the camera cannot do that in its present state",
     "it may still be starting: try again, or use --reconnect"},
    {457, ExitCode::kRefused, "the camera has nothing to play for this range", kAskTheManual},
    {459, ExitCode::kRefused, "the camera starts its streams only together", kAskTheManual},
    {461, ExitCode::kRefused, "the camera does not offer this transport",
     "try --transport tcp, or --transport udp"},
    {500, ExitCode::kRefused, "the camera has an error of its own",
     "restart it, or look whether its stream is configured"},
    {503, ExitCode::kRefused, "the camera cannot serve the stream now",
     "it may be starting, or have too many viewers: try again, or use --reconnect"},
}};

}  // namespace

Failure FailureOfStatus(unsigned int status, const std::string& reason) {
    const std::string shown = reason.empty() ? fmt::format(" (RTSP status {})", status)
                                             : fmt::format(" (RTSP status {} {})", status, reason);
    for (const Meaning& meaning : kMeanings)
        if (meaning.status == status)
            return {meaning.code, meaning.what + shown, meaning.advice};
    if (status >= 300 && status < 400)
        return {ExitCode::kRefused, "the camera sends us elsewhere and does not say where to" + shown,
                "ask the camera's manual for the right URL"};
    return {ExitCode::kRefused, "the camera refuses" + shown,
            status >= 500 ? "restart the camera, or use --reconnect" : "ask the camera's manual"};
}

}  // namespace camclock::app
