#pragma once

#include "apps/camclock/Failure.h"

namespace CLI {
class App;
}

namespace camclock::app {

// One function a subcommand, each in the file of its name. It adds the subcommand with its options to
// `program`; when the user asks for it, the subcommand runs while the command line is parsed and leaves its
// result in `exitCode`.

void AddWatch(CLI::App& program, ExitCode& exitCode);
void AddCalibrate(CLI::App& program, ExitCode& exitCode);
void AddDemo(CLI::App& program, ExitCode& exitCode);
void AddProbe(CLI::App& program, ExitCode& exitCode);
void AddInspect(CLI::App& program, ExitCode& exitCode);

}  // namespace camclock::app
