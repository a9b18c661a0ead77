#include "apps/camclock/Failure.h"
#include "apps/camclock/commands/Commands.h"

#include <camclock/Version.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

using camclock::app::ExitCode;

int Run(int argc, char** argv) {
    CLI::App program("When was each frame of a network camera captured, on this host's clock?", "camclock");
    program.set_version_flag("--version", std::string("camclock ") + CAMCLOCK_VERSION_STRING);
    program.require_subcommand(1);
    program.get_formatter()->column_width(34);

    ExitCode exitCode = ExitCode::kSuccess;
#ifdef CAMCLOCK_WITH_GSTREAMER
    camclock::app::AddWatch(program, exitCode);
    camclock::app::AddDemo(program, exitCode);
#else
    program.footer(
        "This build has no GStreamer and therefore neither `watch` nor `demo`: install GStreamer's\n"
        "development packages and build again (docs/program.md names them).");
#endif
    camclock::app::AddInspect(program, exitCode);
    camclock::app::AddProbe(program, exitCode);

    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version come this way, too, with 0. All else is a command line that cannot be understood.
        return program.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
    }
    return static_cast<int>(exitCode);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "camclock: %s\n", error.what());
    }
    return static_cast<int>(ExitCode::kInternalError);
}
