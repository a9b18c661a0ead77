#include "apps/camclock/commands/CommandLine.h"

#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/views/Output.h"

#include <camclock/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

namespace camclock::app {
namespace {

/// Help and version come as errors, too; all else is a command line that cannot be understood, which gets one
/// line.
ExitCode Tell(const CLI::App& program, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
        std::ostringstream text;
        program.exit(error, text, text);
        Output::Standard().Lines(text.str());
        return ExitCode::kSuccess;
    }
    std::string what = error.what();
    const std::vector<std::string> unknown = program.remaining(true);
    const bool anyCommand = !program.get_subcommands().empty();
    if (!unknown.empty() && (!anyCommand || error.get_name() == "ExtrasError"))
        what = (anyCommand ? "unknown option or argument " : "unknown command or option ") +
               StreamUrl::WithoutSecrets(unknown.front());
    else if (!anyCommand)
        what = "a command is missing";
    std::replace(what.begin(), what.end(), '\n', ' ');
    return Report({ExitCode::kUsage, what, "--help tells what there is"});
}

int Run(int argc, char** argv) {
    CLI::App program("When was each frame of a network camera captured, on this host's clock?", "camclock");
    program.set_version_flag("--version", std::string("camclock ") + CAMCLOCK_VERSION_STRING);
    program.require_subcommand(1);
    program.get_formatter()->column_width(34);

    ExitCode exitCode = ExitCode::kSuccess;
#ifdef CAMCLOCK_WITH_GSTREAMER
    AddWatch(program, exitCode);
    AddDemo(program, exitCode);
    AddCalibrate(program, exitCode);
#else
    program.footer(
        "This build has no GStreamer and therefore no `watch`, `demo` and `calibrate`: install GStreamer's\n"
        "development packages and build again (docs/program.md names them).");
#endif
    AddInspect(program, exitCode);
    AddProbe(program, exitCode);

    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return static_cast<int>(Tell(program, error));
    }
    return static_cast<int>(exitCode);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
    Output& output = Output::Standard();  // both before anything opens a file
    Output& errors = Output::Error();
    int result = static_cast<int>(ExitCode::kInternalError);
    try {
        result = Run(argc, argv);
    } catch (const std::exception& error) {
        errors.Line(std::string("camclock: ") + error.what());
    }
    output.Finish();
    errors.Flush(std::chrono::milliseconds(100));
    for (const Output* end : {&output, &errors})
        if (const auto trouble = end->Trouble(); trouble && result == 0)
            result = static_cast<int>(Report(*trouble));
    return result;
}

}  // namespace camclock::app
