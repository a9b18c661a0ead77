#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/commands/WatchRun.h"
#include "apps/camclock/sources/HostProbe.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/Terminal.h"

#include <camclock/Receiver.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace camclock::app {
namespace {

struct WatchOptions {
    std::vector<std::string> urls;
    std::vector<std::string> cameras;
    std::string list;
    AccessOptions access;
    double duration_s = 0.0;
    double reconnectMax_s = 30.0;
    WatchPlan plan;
    LogSettings log;
};

std::chrono::milliseconds Milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000.0));
}

/// All that the command line and the list name, in this order.
std::optional<Failure> ReadUrls(const WatchOptions& options, std::vector<NamedUrl>& urls) {
    for (const std::string& text : options.urls)
        urls.push_back({"", text});
    for (const std::string& text : options.cameras) {
        const auto camera = ReadCamera(text);
        if (!camera)
            return Failure{ExitCode::kUsage,
                           fmt::format("--camera: {} is no NAME=URL,URL", StreamUrl::WithoutSecrets(text)),
                           ""};
        urls.insert(urls.end(), camera->begin(), camera->end());
    }
    if (!options.list.empty()) {
        std::ifstream file(options.list);
        if (!file || std::filesystem::is_directory(options.list))
            return Failure{ExitCode::kUsage, fmt::format("cannot read {}", options.list),
                           "--list takes the name of a file"};
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        int line = 0;
        const auto listed = ReadCameraList(text, line);
        if (!listed)
            return Failure{ExitCode::kUsage, fmt::format("{}: line {} names no camera", options.list, line),
                           "write NAME URL, or a URL alone"};
        urls.insert(urls.end(), listed->begin(), listed->end());
    }
    if (urls.empty())
        return Failure{ExitCode::kUsage, "no camera to watch", "give a URL, --camera or --list"};
    return std::nullopt;
}

std::optional<Failure> ReadTargets(const WatchOptions& options, WatchPlan& plan) {
    std::vector<NamedUrl> urls;
    if (auto failure = ReadUrls(options, urls))
        return failure;
    for (const NamedUrl& named : urls) {
        StreamUrl url;
        if (auto failure = ReadUrl(named.url, options.access, url))
            return failure;
        const std::string name = named.camera.empty() ? url.label : named.camera;
        plan.targets.push_back({name, !named.camera.empty(), std::move(url), plan.connection.transport});
    }
    return std::nullopt;
}

ExitCode RunWatch(WatchOptions& options) {
    WatchPlan& plan = options.plan;
    plan.connection.longestDelay = Milliseconds(options.reconnectMax_s);
    plan.connection.firstDelay = std::min(plan.connection.firstDelay, plan.connection.longestDelay);
    if (options.duration_s > 0.0)
        plan.duration = Milliseconds(options.duration_s);
    plan.logsToTerminal = options.log.verbose;

    if (const auto failure = ReadTargets(options, plan))
        return Report(*failure);
    if (const auto failure = CheckTimingSettings(plan.timing))
        return Report(*failure);
    if (const auto failure = SetUpLog(options.log))
        return Report(*failure);
    if (plan.timing.icmp) {
        if (const auto failure = HostProbe::MissingRight()) {
            Report(*failure);
            Output::Error().Line("camclock: going on with the latency estimate");
            plan.timing.icmp = false;
        }
    }
    if (const auto failure = PrepareGstreamer())
        return Report(*failure);
    if (const auto failure = CheckTls(plan.connection))
        return Report(*failure);

    receiver::Now();  // anchors the host's clock
    Terminal::CatchInterrupts();
    auto run = std::make_unique<WatchRun>(std::move(plan));
    const ExitCode result = run->Run();
    if (run->Stuck())
        Terminal::EndNow(result);
    return result;
}

}  // namespace

void AddWatch(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* command = program.add_subcommand("watch", "Show when the frames of live cameras were captured");
    command->add_option("url", options->urls, "One URL a camera: rtsp://[user[:password]@]host[:port]/path")
        ->type_name("URL");
    command
        ->add_option("--camera", options->cameras,
                     "A camera by name; the streams of one device share its clock")
        ->type_name("NAME=URL,URL")
        ->allow_extra_args(false);
    command->add_option("--list", options->list, "Cameras from a file: lines NAME URL, NAME=URL,URL or URL")
        ->type_name("FILE");
    AddChoice<OutputFormat>(
        *command, "--format", options->plan.format,
        {{"table", OutputFormat::kTable}, {"csv", OutputFormat::kCsv}, {"json", OutputFormat::kJson}},
        "table (default), or one line a frame as csv or json")
        ->type_name("FORMAT");
    AddChoice<SummaryFormat>(
        *command, "--summary", options->plan.summary,
        {{"text", SummaryFormat::kText}, {"json", SummaryFormat::kJson}, {"none", SummaryFormat::kNone}},
        "At the end: text (default), json or none")
        ->type_name("FORMAT");
    command->add_flag("--audio", options->plan.connection.audio, "Watch the sound beside the picture");
    command->add_option("--duration", options->duration_s, "End after this time [until Ctrl-C]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e9).description(""));

    AddConnectionOptions(*command, options->access, options->plan.connection);
    const std::string connection = "Connection";
    command
        ->add_flag("--reconnect", options->plan.connection.reconnect,
                   "Connect again when a stream fails, after 1 s, 2 s, 4 s ...")
        ->group(connection);
    command->add_option("--reconnect-max", options->reconnectMax_s, "Longest delay between two attempts [30]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86400.0).description(""))
        ->group(connection);

    AddTimingOptions(*command, options->plan.timing);
    AddIcmpOptions(*command, options->plan.timing);
    AddLogOptions(*command, options->log);
    command->callback([options, &exitCode] { exitCode = RunWatch(*options); });
}

}  // namespace camclock::app
