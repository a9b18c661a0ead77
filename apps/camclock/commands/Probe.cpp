#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/LogSetup.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/sources/HostProbe.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/ProbeWriter.h"
#include "apps/camclock/views/RowSink.h"
#include "apps/camclock/views/Terminal.h"

#include <camclock/Receiver.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace camclock::app {
namespace {

/// A hundred years, see AddTimingOptions.
constexpr std::int64_t kLongest_ms = 100LL * 366 * 24 * 3600 * 1000;
constexpr std::chrono::milliseconds kPollInterval{50};  // for Ctrl-C

struct ProbeOptions {
    std::vector<std::string> hosts;
    int count = 1;
    double interval_s = 1.0;
    ProbeSettings settings;
    OutputFormat format = OutputFormat::kTable;
    LogSettings log;
};

/// A host, and what became of it.
struct Target {
    explicit Target(const std::string& host)
        : probe(host) {}

    HostProbe probe;
    bool measured = false;
    ExitCode failure = ExitCode::kSuccess;
};

void Print(const ProbeOptions& options, const std::string& host, const ProbeOutcome& outcome,
           std::size_t width) {
    if (outcome.failure)
        Report(*outcome.failure);
    switch (options.format) {
    case OutputFormat::kTable:
        if (!outcome.failure)
            Output::Standard().Line(ProbeTableLine(host, outcome, width));
        break;
    case OutputFormat::kCsv: Output::Standard().Line(ProbeCsvLine(host, outcome)); break;
    case OutputFormat::kJson: Output::Standard().Line(ProbeJsonLine(host, outcome)); break;
    }
    Output::Standard().Flush(kPollInterval);
}

/// Nobody reads, or nothing can be written any more.
bool OutputEnded() {
    return Output::Standard().ReaderGone() || Output::Standard().Trouble();
}

/// Waits until `time`; Ctrl-C ends the wait.
void WaitUntil(std::chrono::steady_clock::time_point time) {
    while (!Terminal::Interrupted()) {
        const auto left = time - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(left, kPollInterval));
    }
}

ExitCode RunProbe(const ProbeOptions& options) {
    if (const auto failure = SetUpLog(options.log))
        return Report(*failure);
    if (const auto failure = HostProbe::MissingRight())
        return Report(*failure);
    receiver::Now();  // anchors the host's clock
    Terminal::CatchInterrupts();

    std::list<Target> targets;
    std::size_t width = 4;
    for (const std::string& host : options.hosts) {
        targets.emplace_back(host);
        width = std::max(width, host.size());
    }
    if (options.format == OutputFormat::kTable)
        Output::Standard().Line(ProbeTableHeader(width));
    else if (options.format == OutputFormat::kCsv)
        Output::Standard().Line(ProbeCsvHeader());

    const std::chrono::duration<double> interval(options.interval_s);
    auto next = std::chrono::steady_clock::now();
    for (int round = 0; round < options.count && !Terminal::Interrupted() && !OutputEnded(); ++round) {
        WaitUntil(next);
        next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(interval);
        for (Target& target : targets) {
            if (Terminal::Interrupted() || OutputEnded())
                break;
            const ProbeOutcome outcome = target.probe.Run(options.settings);
            target.measured = target.measured || !outcome.failure;
            if (outcome.failure)
                target.failure = outcome.failure->code;
            Print(options, target.probe.Host(), outcome, width);
        }
    }
    for (const Target& target : targets) {
        if (!target.measured && target.failure != ExitCode::kSuccess)
            return target.failure;
    }
    return ExitCode::kSuccess;
}

}  // namespace

void AddProbe(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<ProbeOptions>();
    CLI::App* command =
        program.add_subcommand("probe", "Measure how far the clocks of hosts are from this one's, with ICMP");
    command->add_option("host", options->hosts, "One host name or IPv4 address a camera")
        ->required()
        ->type_name("HOST");
    command->add_option("--count", options->count, "Probings of each host [1]")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""));
    command->add_option("--interval", options->interval_s, "From one probing to the next [1]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e6).description(""));
    command->add_option("--requests", options->settings.requests, "Requests of one probing [5]")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000).description(""));
    command->add_option("--timeout", options->settings.timeout_ms, "Longest wait for an answer [300]")
        ->type_name("MS")
        ->check(CLI::Range(1, 60'000).description(""));
    command
        ->add_option("--expected-difference", options->settings.expectedDifference_ms,
                     "Clock difference to expect, host less camera, to within 12 hours: it tells the day [0]")
        ->type_name("MS")
        ->check(CLI::Range(-kLongest_ms, kLongest_ms).description(""));
    AddChoice<OutputFormat>(
        *command, "--format", options->format,
        {{"table", OutputFormat::kTable}, {"csv", OutputFormat::kCsv}, {"json", OutputFormat::kJson}},
        "table (default), or one line a probing as csv or json")
        ->type_name("FORMAT");
    AddLogOptions(*command, options->log);
    command->callback([options, &exitCode] { exitCode = RunProbe(*options); });
}

}  // namespace camclock::app
