#pragma once

#include <sstream>

namespace camclock {

/// Where the messages of an `AsynchronousLog` go. Called by that log's worker thread only.
class LogWrap {
public:
    LogWrap() = default;
    virtual ~LogWrap() = default;
    LogWrap(const LogWrap&) = delete;
    LogWrap& operator=(const LogWrap&) = delete;

    /// Writes the stream's whole text.
    virtual void Write(std::stringstream& message) = 0;
};

}  // namespace camclock
