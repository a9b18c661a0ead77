#pragma once

namespace camclock::app {

/// The whole program: reads the command line, runs what it asks for, and returns what the process is to end
/// with.
int RunCommandLine(int argc, char** argv);

}  // namespace camclock::app
