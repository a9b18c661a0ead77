#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/commands/LogSetup.h"
#include "apps/camclock/sources/WatchSettings.h"

#include <optional>

namespace CLI {
class App;
}

namespace camclock::app {

// Options that more than one subcommand offers. `settings` must live until the command line has been parsed.

void AddTimingOptions(CLI::App& command, TimingSettings& settings);
void AddIcmpOptions(CLI::App& command, TimingSettings& settings);
void AddLogOptions(CLI::App& command, LogSettings& settings);

/// Are the directories of the settings there and writable?
std::optional<Failure> CheckTimingSettings(const TimingSettings& settings);

/// One line on standard error; returns the failure's code.
ExitCode Report(const Failure& failure);

}  // namespace camclock::app
