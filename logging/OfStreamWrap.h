#pragma once

#include "logging/LogWrap.h"

#include <fstream>
#include <memory>

namespace camclock {

/// A sink over a file. The messages bring their own line ends; nothing is flushed before the file is closed.
/// What is written to a file that failed to open is lost without a word.
class OfStreamWrap : public LogWrap {
public:
    /// Takes the stream over; it is closed with this sink.
    explicit OfStreamWrap(std::ofstream* file);
    explicit OfStreamWrap(std::unique_ptr<std::ofstream> file);
    ~OfStreamWrap() override;

    void Write(std::stringstream& message) override;

private:
    std::unique_ptr<std::ofstream> file_;
};

}  // namespace camclock
