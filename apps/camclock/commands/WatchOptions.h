#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/commands/LogSetup.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"

#include <camclock/receiver/Settings.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace camclock::app {

/// What the command line says about timing.
struct TimingSettings {
    receiver::Settings camera;    ///< of every camera, but for `icmpHost`
    bool icmp = false;            ///< measure the clock difference
    bool requireReports = false;  ///< a stream without sender reports is faulty
};

/// Who asks the camera for its stream.
struct AccessOptions {
    std::string user;  ///< empty: nobody, or who stands in the URL
};

// Options that more than one subcommand offers. `settings` must live until the command line has been parsed.

void AddConnectionOptions(CLI::App& command, AccessOptions& access, ConnectionSettings& settings);
void AddTimingOptions(CLI::App& command, TimingSettings& settings);
void AddIcmpOptions(CLI::App& command, TimingSettings& settings);
void AddLogOptions(CLI::App& command, LogSettings& settings);

/// Reads a URL of the command line, with the password of CAMCLOCK_PASSWORD where the user stands beside it.
std::optional<Failure> ReadUrl(const std::string& text, const AccessOptions& access, StreamUrl& url);

/// Are the directories of the settings there and writable?
std::optional<Failure> CheckTimingSettings(const TimingSettings& settings);

/// The trouble with a directory that logs are written into, when its disk is full.
std::optional<Failure> CheckRoom(const std::string& directory);

/// One line on standard error; returns the failure's code.
ExitCode Report(const Failure& failure);

/// The place of `text` among `names`, in upper or lower case. For a text that is none of them throws the
/// error of a command line, which names it and them.
std::size_t ChoiceOf(const std::string& option, const std::string& text,
                     const std::vector<std::string>& names);

/// An option whose value is one of a few.
template <class T>
CLI::Option* AddChoice(CLI::App& command, const std::string& option, T& target,
                       const std::vector<std::pair<std::string, T>>& choices, const std::string& text) {
    const auto take = [option, choices, &target](const std::string& name) {
        std::vector<std::string> names;
        names.reserve(choices.size());
        for (const auto& choice : choices)
            names.push_back(choice.first);
        target = choices[ChoiceOf(option, name, names)].second;
    };
    return command.add_option_function<std::string>(option, take, text);
}

/// A URL of a camera from the command line or a list, with the credentials that stand beside it.
struct NamedUrl {
    std::string camera;  ///< empty: it has no name
    std::string url;
};

/// "NAME=URL,URL": the URLs of one camera. A comma ends a URL only where the next one begins behind it.
std::optional<std::vector<NamedUrl>> ReadCamera(const std::string& text);

/// Lines "URL", "NAME URL" or "NAME=URL,URL"; empty ones and those that begin with '#' are passed over.
/// `wrong` gets the number of the first line that is none of these.
std::optional<std::vector<NamedUrl>> ReadCameraList(const std::string& text, int& wrong);

}  // namespace camclock::app
