#include "logging/OfStreamWrap.h"

#include <utility>

namespace camclock {

OfStreamWrap::OfStreamWrap(std::ofstream* file)
    : file_(file) {}

OfStreamWrap::OfStreamWrap(std::unique_ptr<std::ofstream> file)
    : file_(std::move(file)) {}

OfStreamWrap::~OfStreamWrap() = default;

void OfStreamWrap::Write(std::stringstream& message) {
    const std::string text = message.str();
    file_->write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace camclock
