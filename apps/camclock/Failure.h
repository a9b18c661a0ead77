#pragma once

#include <string>

namespace camclock::app {

/// What the program tells its caller when it ends. The numbers are documented in docs/program.md and do not
/// change.
enum class ExitCode : int {
    kSuccess = 0,
    kInternalError = 1,     ///< something failed that has no code of its own
    kInvalidHeader = 1,     ///< `inspect`: a header is not valid
    kUsage = 2,             ///< the command line cannot be understood
    kBadUrl = 3,            ///< not a URL of a stream
    kNotReachable = 4,      ///< refused, or no way to the camera, or its name is unknown
    kUnauthorised = 5,      ///< the camera wants other credentials
    kNotFound = 6,          ///< the camera has no stream at this path
    kNoVideo = 7,           ///< the camera offers streams, but none of them is video
    kUnsupportedCodec = 8,  ///< video, but neither H.264 nor MPEG-4 Visual
    kStreamLost = 9,        ///< the camera closed a running stream
    kTimeOut = 10,          ///< nothing arrived in time
    kOutput = 11,           ///< a file or directory cannot be written
    kNoSync = 12,           ///< the demo received frames, but could not compare enough of them
    kNoRight = 13,          ///< measuring with ICMP needs rights that the user does not have
    kNoReply = 14,          ///< ICMP time-stamp requests are not answered
    kBadReply = 15,         ///< they are, but not by answers that can be used
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
