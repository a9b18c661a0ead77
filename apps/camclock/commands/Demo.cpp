#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/commands/WatchRun.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/sources/TestCamera.h"
#include "apps/camclock/views/DemoReport.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/Terminal.h"

#include <camclock/Receiver.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace camclock::app {
namespace {

enum class DemoTransport { kUdp, kTcp, kBoth };
enum class DemoFormat { kTable, kJson };

struct DemoOptions {
    std::int64_t offset_ms = 3'723'500;  // an hour, two minutes and three and a half seconds
    double drift_ppm = 50.0;
    double duration_s = 20.0;
    DemoTransport transport = DemoTransport::kBoth;
    DemoFormat format = DemoFormat::kTable;
    std::optional<std::int64_t> meanLatency_ms;
    LogSettings log;
};

/// The receivers of the demo: one over each transport, at the same time, from the same camera.
WatchPlan PlanOf(const DemoOptions& options, const std::string& url) {
    WatchPlan plan;
    const StreamUrl target = *StreamUrl::Parse(url);
    if (options.transport != DemoTransport::kTcp)
        plan.targets.push_back({"udp", false, target, Transport::kUdp});
    if (options.transport != DemoTransport::kUdp)
        plan.targets.push_back({"tcp", false, target, Transport::kTcp});
    if (options.meanLatency_ms)
        plan.timing.camera.meanLatency = std::chrono::milliseconds(*options.meanLatency_ms);
    plan.duration = std::chrono::milliseconds(static_cast<std::int64_t>(options.duration_s * 1000.0));
    plan.quiet = options.format == DemoFormat::kJson;
    plan.logsToTerminal = options.log.verbose;
    return plan;
}

void SetLatency(receiver::Camera& camera, const MeasuredLatency& measured) {
    camera.SetMeanLatency(measured.mean);
    camera.SetLeastLatency(measured.least);
}

ExitCode Compare(const DemoOptions& options) {
    TestCamera::Settings settings;
    settings.offset = std::chrono::milliseconds(options.offset_ms);
    settings.drift_ppm = options.drift_ppm;
    const TestCamera camera(settings);
    WatchPlan plan = PlanOf(options, camera.Url());

    std::optional<std::chrono::milliseconds> meanLatency;
    if (options.meanLatency_ms)
        meanLatency = std::chrono::milliseconds(*options.meanLatency_ms);
    std::vector<DemoComparison> comparisons;
    for (const WatchPlan::Target& target : plan.targets)
        comparisons.emplace_back(target.transport == Transport::kUdp ? "UDP" : "TCP", meanLatency);

    WatchRun run(std::move(plan), [&](const FrameRow& row, CameraWatch& watch) {
        DemoComparison& comparison = comparisons[static_cast<std::size_t>(row.stream - 1)];
        const std::optional<TestCamera::Truth> truth = camera.TruthOf(row.frame.rtp_ts);
        if (!truth)
            comparison.AddUnknown();
        else if (const auto measured = comparison.Add(row, *truth))
            SetLatency(watch.Camera(), *measured);
    });
    const ExitCode watched = run.Run();

    std::vector<DemoResult> results;
    bool enough = true;
    for (const DemoComparison& comparison : comparisons) {
        results.push_back(comparison.Result());
        enough = enough && results.back().compared > 0;
    }
    if (options.format == DemoFormat::kJson) {
        Output::Standard().Lines(DemoJson(results));
    } else {
        Output::Standard().Line("");
        for (const std::string& line : DemoTable(results))
            Output::Standard().Line(line);
    }
    if (watched != ExitCode::kSuccess)
        return watched;
    if (!enough)
        return Report({ExitCode::kNoSync, "no sync: no frame could be compared with the truth",
                       "let it run longer with --duration"});
    return ExitCode::kSuccess;
}

ExitCode RunDemo(const DemoOptions& options) {
    if (const auto failure = SetUpLog(options.log))
        return Report(*failure);
    if (const auto failure = PrepareGstreamer())
        return Report(*failure);
    receiver::Now();  // anchors the host's clock
    Terminal::CatchInterrupts();
    if (options.format == DemoFormat::kTable)
        Output::Standard().Lines(fmt::format("A camera on this machine whose clock is wrong by\n"
                                             "{} ms and drifts by {} ppm, watched for {} s.\n"
                                             "At the end: what was found, against the truth.\n\n",
                                             options.offset_ms, options.drift_ppm, options.duration_s));
    return Compare(options);
}

}  // namespace

void AddDemo(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<DemoOptions>();
    CLI::App* command = program.add_subcommand(
        "demo", "Watch a camera with a wrong clock on this machine, and compare with the truth");
    command->add_option("--offset", options->offset_ms, "Camera's clock less the host's [3723500]")
        ->type_name("MS")
        ->check(CLI::Range(-1'000'000'000'000LL, 1'000'000'000'000LL).description(""));
    command->add_option("--drift", options->drift_ppm, "So much faster runs the camera's clock [50]")
        ->type_name("PPM")
        ->check(CLI::Range(-100'000.0, 100'000.0).description(""));
    command->add_option("--duration", options->duration_s, "How long to watch [20]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86'400.0).description(""));
    AddChoice<DemoTransport>(
        *command, "--transport", options->transport,
        {{"udp", DemoTransport::kUdp}, {"tcp", DemoTransport::kTcp}, {"both", DemoTransport::kBoth}},
        "udp, tcp, or both at the same time (default)")
        ->type_name("KIND");
    command
        ->add_option("--mean-latency", options->meanLatency_ms,
                     "Latency to expect [measured against the truth in the first two seconds]")
        ->type_name("MS")
        ->check(CLI::Range(-100'000, 100'000).description(""));
    AddChoice<DemoFormat>(*command, "--format", options->format,
                          {{"table", DemoFormat::kTable}, {"json", DemoFormat::kJson}},
                          "table (default) or json")
        ->type_name("FORMAT");
    AddLogOptions(*command, options->log);
    command->callback([options, &exitCode] { exitCode = RunDemo(*options); });
}

}  // namespace camclock::app
