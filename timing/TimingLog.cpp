#include <camclock/TimeFilter.h>

#include "logging/AsynchronousLog.h"
#include "logging/OfStreamWrap.h"
#include "timing/TimingLogColumns.h"
#include "util/PathSeparator.h"

#include <fstream>

namespace camclock {
namespace {

/// The first numbered name that no readable file has.
std::string FreeName(const std::string& directory) {
    for (unsigned long long n = 0;; ++n) {
        std::string name = directory + "timinglog" + std::to_string(n) + ".txt";
        if (!std::ifstream(name))
            return name;
    }
}

}  // namespace

void TimeFilter::EnableTimeLogging(std::string directory) {
    _LogInfo("Starting a time log at: " + directory);
    if (!directory.empty())
        directory += kPathSeparator;
    auto file = std::make_unique<std::ofstream>(FreeName(directory), std::ios::out | std::ios::trunc);
    timeLog_.reset();  // an earlier log goes first, with what it still has queued
    timeLog_ = std::make_unique<AsynchronousLog>(new OfStreamWrap(std::move(file)));
    timeLog_->Post([](std::stringstream& out) { out << kTimingLogHeader; });
}

bool TimeFilter::IsTimeLogging() {
    return timeLog_ != nullptr;
}

AsynchronousLog& TimeFilter::TimeLog() {
    return *timeLog_;
}

}  // namespace camclock
