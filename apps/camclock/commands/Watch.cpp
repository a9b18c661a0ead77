#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/commands/WatchRun.h"
#include "apps/camclock/sources/HostProbe.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/views/Terminal.h"
#include "receiver/HostClock.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace camclock::app {
namespace {

struct WatchOptions {
    std::vector<std::string> urls;
    std::string user;
    double duration_s = 0.0;
    double connectTimeOut_s = 10.0;
    double reconnectMax_s = 30.0;
    WatchPlan plan;
    LogSettings log;
};

std::chrono::milliseconds Milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000.0));
}

std::optional<Failure> ReadTargets(const WatchOptions& options, WatchPlan& plan) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    const char* password = std::getenv("CAMCLOCK_PASSWORD");
    for (const std::string& text : options.urls) {
        std::optional<StreamUrl> url = StreamUrl::Parse(text);
        if (!url)
            return Failure{ExitCode::kBadUrl, fmt::format("bad URL: {}", WithoutSecrets(text)),
                           "write rtsp://host[:port]/path, and %2F for a slash in a password"};
        if (url->user.empty() && !options.user.empty()) {
            url->user = options.user;
            url->password = password == nullptr ? "" : password;
        }
        plan.targets.push_back({std::move(*url), plan.connection.transport});
    }
    return std::nullopt;
}

ExitCode RunWatch(WatchOptions& options) {
    WatchPlan& plan = options.plan;
    plan.connection.connectTimeOut = Milliseconds(options.connectTimeOut_s);
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
            fmt::print(stderr, "camclock: going on with the latency estimate\n");
            plan.timing.icmp = false;
        }
    }
    if (const auto failure = PrepareGstreamer())
        return Report(*failure);

    receiver::HostClock::Anchor();
    Terminal::CatchInterrupts();
    return WatchRun(std::move(plan)).Run();
}

}  // namespace

void AddWatch(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* command = program.add_subcommand("watch", "Show when the frames of live cameras were captured");
    command->add_option("url", options->urls, "One URL a camera: rtsp://[user[:password]@]host[:port]/path")
        ->required()
        ->type_name("URL");
    command
        ->add_option("--format", options->plan.format, "table (default), or one line a frame as csv or json")
        ->transform(
            CLI::CheckedTransformer(std::map<std::string, OutputFormat>{{"table", OutputFormat::kTable},
                                                                        {"csv", OutputFormat::kCsv},
                                                                        {"json", OutputFormat::kJson}},
                                    CLI::ignore_case)
                .description(""))
        ->type_name("FORMAT");
    command->add_option("--duration", options->duration_s, "End after this time [until Ctrl-C]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e9).description(""));

    const std::string connection = "Connection";
    command
        ->add_option("--transport", options->plan.connection.transport,
                     "udp, tcp, or auto (default): udp first, tcp when nothing comes")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Transport>{{"auto", Transport::kAuto},
                                                                             {"udp", Transport::kUdp},
                                                                             {"tcp", Transport::kTcp}},
                                            CLI::ignore_case)
                        .description(""))
        ->type_name("KIND")
        ->group(connection);
    command->add_option("--user", options->user, "User name; its password stands in CAMCLOCK_PASSWORD")
        ->type_name("NAME")
        ->group(connection);
    command
        ->add_option("--connect-timeout", options->connectTimeOut_s, "Longest wait for the first frame [10]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 3600.0).description(""))
        ->group(connection);
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
