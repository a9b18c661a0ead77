#pragma once

#include "apps/camclock/Failure.h"

#include <optional>
#include <string>

namespace camclock::app {

/// Where the library's own messages go: both, one or none.
struct LogSettings {
    bool verbose = false;  ///< to standard error
    std::string file;      ///< appended to this file; empty: none
};

/// Sets log4cpp up for the categories RTSP.*; to be called before any of the library's objects is made.
std::optional<Failure> SetUpLog(const LogSettings& settings);

/// Why the log file cannot be written any more, if so.
std::optional<Failure> LogTrouble();

}  // namespace camclock::app
