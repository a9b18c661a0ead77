#pragma once

#include <string>

namespace camclock::app {

/// What the program tells its caller when it ends. The numbers are documented in docs/program.md and do not
/// change.
enum class ExitCode : int {
    kSuccess = 0,
    kInternalError = 1,  ///< something failed that has no code of its own
    kUsage = 2,          ///< the command line cannot be understood
    kBadUrl = 3,         ///< not a URL of a stream
    kNotReachable = 4,   ///< refused, no way to the camera, its name is unknown, TLS fails, or no RTSP
    kUnauthorised = 5,   ///< the camera wants other credentials, or forbids the stream
    kNotFound = 6,       ///< the camera has no stream at this path
    kNoVideo = 7,        ///< the camera offers streams, but none of them is video
    // 8 was a codec that was not supported: every codec is.
    kStreamLost = 9,      ///< the camera closed a running stream
    kTimeOut = 10,        ///< nothing arrived in time
    kOutput = 11,         ///< standard output, a file or a directory cannot be written
    kNoSync = 12,         ///< the demo received frames, but could not compare enough of them
    kNoRight = 13,        ///< measuring with ICMP needs rights that the user does not have
    kNoReply = 14,        ///< ICMP time-stamp requests are not answered
    kBadReply = 15,       ///< they are, but not by answers that can be used
    kInvalidHeader = 16,  ///< `inspect`: a header is not valid
    kRefused = 17,        ///< the camera refuses with another RTSP status
};

/// Why a command cannot go on: what happened and what to do about it.
struct Failure {
    ExitCode code = ExitCode::kInternalError;
    std::string what;    ///< never holds a password
    std::string advice;  ///< may be empty

    /// "what; advice", for one line.
    std::string Text() const { return advice.empty() ? what : what + "; " + advice; }
};

}  // namespace camclock::app
