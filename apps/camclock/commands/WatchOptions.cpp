#include "apps/camclock/commands/WatchOptions.h"

#include "apps/camclock/views/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

namespace camclock::app {
namespace {

/// A hundred years: more than any clock is wrong, and far from the ends of 64-bit times.
constexpr std::int64_t kLongest_ms = 100LL * 366 * 24 * 3600 * 1000;

template <class Take>
CLI::Option* AddMilliseconds(CLI::App& command, const std::string& name, const std::string& text,
                             std::int64_t smallest, Take take) {
    return command
        .add_option_function<std::int64_t>(
            name, [take](const std::int64_t& value) { take(std::chrono::milliseconds(value)); }, text)
        ->type_name("MS")
        ->check(CLI::Range(smallest, kLongest_ms).description(""));
}

}  // namespace

void AddConnectionOptions(CLI::App& command, AccessOptions& access, ConnectionSettings& settings) {
    const std::string group = "Connection";
    AddChoice<Transport>(command, "--transport", settings.transport,
                         {{"auto", Transport::kAuto}, {"udp", Transport::kUdp}, {"tcp", Transport::kTcp}},
                         "udp, tcp, or auto (default): udp first, tcp when nothing comes")
        ->type_name("KIND")
        ->group(group);
    command.add_option("--user", access.user, "User name; its password stands in CAMCLOCK_PASSWORD")
        ->type_name("NAME")
        ->group(group);
    command
        .add_option_function<double>(
            "--connect-timeout",
            [&settings](const double& value) {
                settings.connectTimeOut =
                    std::chrono::milliseconds(static_cast<std::int64_t>(value * 1000.0));
            },
            "Longest wait for the first frame [10]")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 3600.0).description(""))
        ->group(group);
    command
        .add_option("--tls-ca", settings.tlsCaFile, "rtsps: trust these certificates (PEM) [the system's]")
        ->type_name("FILE")
        ->group(group);
    command
        .add_flag("--tls-insecure", settings.tlsInsecure,
                  "rtsps: accept any certificate; anybody in between can listen")
        ->group(group);
}

std::optional<Failure> ReadUrl(const std::string& text, const AccessOptions& access, StreamUrl& url) {
    std::optional<StreamUrl> read = StreamUrl::Parse(text);
    if (!read)
        return Failure{ExitCode::kBadUrl, fmt::format("bad URL: {}", StreamUrl::WithoutSecrets(text)),
                       "write rtsp://host[:port]/path, and %2F for a slash in a password"};
    url = std::move(*read);
    if (url.user.empty() && !access.user.empty()) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing of the program changes the environment
        const char* password = std::getenv("CAMCLOCK_PASSWORD");
        url.user = access.user;
        url.password = password == nullptr ? "" : password;
    }
    return std::nullopt;
}

void AddTimingOptions(CLI::App& command, TimingSettings& settings) {
    using std::chrono::milliseconds;
    const std::string group = "Timing";
    AddMilliseconds(command, "--mean-latency", "Latency of the usual frame, from capture to reception [30]",
                    -kLongest_ms, [&settings](milliseconds value) { settings.camera.meanLatency = value; })
        ->group(group);
    command
        .add_option_function<double>(
            "--least-latency",
            [&settings](const double& value) {
                settings.camera.leastLatency =
                    std::chrono::microseconds(static_cast<std::int64_t>(value * 1000.0));
            },
            "Latency of the fastest frame, for the precise estimator [the mean latency]")
        ->type_name("MS")
        ->check(CLI::Range(-1e6, 1e6).description(""))
        ->group(group);
    AddChoice<receiver::Estimator>(
        command, "--estimator", settings.camera.estimator,
        {{"median", receiver::Estimator::kMedian}, {"precise", receiver::Estimator::kFloorLine}},
        "Whose answer TOC_host is: median (default) or precise")
        ->type_name("KIND")
        ->group(group);
    AddMilliseconds(command, "--packet-timeout", "Longest silence of a stream [10000]", 1,
                    [&settings](milliseconds value) { settings.camera.packetTimeOut = value; })
        ->group(group);
    AddMilliseconds(command, "--rtcp-timeout",
                    "Longest time without sender report, with --require-rtcp [30000]", 1,
                    [&settings](milliseconds value) { settings.camera.reportTimeOut = value; })
        ->group(group);
    command.add_flag("--require-rtcp", settings.requireReports, "A stream without sender reports is faulty")
        ->group(group);
    command
        .add_option("--timing-log", settings.camera.timingLogDirectory,
                    "Write timing logs into this directory, one an epoch")
        ->type_name("DIR")
        ->group(group);
}

void AddIcmpOptions(CLI::App& command, TimingSettings& settings) {
    const std::string group = "Clock difference by ICMP";
    CLI::Option* icmp =
        command.add_flag("--icmp", settings.icmp, "Measure the clock difference (root or CAP_NET_RAW)");
    icmp->group(group);
    command
        .add_option_function<std::int64_t>(
            "--poll",
            [&settings](const std::int64_t& value) {
                settings.camera.icmpPoll = std::chrono::seconds(value);
            },
            "From one measurement to the next [60]")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 31'536'000).description(""))
        ->needs(icmp)
        ->group(group);
    AddMilliseconds(
        command, "--expected-difference", "Difference to begin with, host less camera; it tells the day [0]",
        -kLongest_ms,
        [&settings](std::chrono::milliseconds value) { settings.camera.expectedDifference = value; })
        ->needs(icmp)
        ->group(group);
    command
        .add_option("--probe-log", settings.camera.probeLogDirectory,
                    "Write probelog.txt into this directory; of several cameras, into 1, 2 ... below it")
        ->type_name("DIR")
        ->needs(icmp)
        ->group(group);
}

void AddLogOptions(CLI::App& command, LogSettings& settings) {
    const std::string group = "Messages";
    command.add_flag("--verbose,-v", settings.verbose, "Show the library's own messages on standard error")
        ->group(group);
    command.add_option("--log-file", settings.file, "Append the library's own messages to this file")
        ->type_name("FILE")
        ->group(group);
}

namespace {

std::optional<Failure> CheckDirectory(const std::string& directory, const char* option) {
    if (directory.empty())
        return std::nullopt;
    namespace fs = std::filesystem;
    const fs::path probe = fs::path(directory) / ".camclock-write-test";
    const bool writable = static_cast<bool>(std::ofstream(probe));
    std::error_code ignored;
    fs::remove(probe, ignored);
    if (writable)
        return std::nullopt;
    return Failure{ExitCode::kOutput, fmt::format("cannot write into the directory {}", directory),
                   fmt::format("create it, or choose another with {}", option)};
}

}  // namespace

std::optional<Failure> CheckTimingSettings(const TimingSettings& settings) {
    if (auto failure = CheckDirectory(settings.camera.timingLogDirectory, "--timing-log"))
        return failure;
    return CheckDirectory(settings.camera.probeLogDirectory, "--probe-log");
}

std::optional<Failure> CheckRoom(const std::string& directory) {
    if (directory.empty())
        return std::nullopt;
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(directory, error);
    if (!error && space.available > 0)
        return std::nullopt;
    return Failure{ExitCode::kOutput,
                   fmt::format("cannot write into the directory {}: no room is left", directory),
                   "make room, or write elsewhere"};
}

ExitCode Report(const Failure& failure) {
    Output::Error().Line("camclock: " + failure.Text());
    Output::Error().Flush(std::chrono::milliseconds(100));
    return failure.code;
}

std::size_t ChoiceOf(const std::string& option, const std::string& text,
                     const std::vector<std::string>& names) {
    const auto same = [&text](const std::string& name) {
        return name.size() == text.size() &&
               std::equal(name.begin(), name.end(), text.begin(), [](unsigned char a, unsigned char b) {
                   return std::tolower(a) == std::tolower(b);
               });
    };
    const auto found = std::find_if(names.begin(), names.end(), same);
    if (found != names.end())
        return static_cast<std::size_t>(found - names.begin());
    std::string all;
    for (const std::string& name : names)
        all += (all.empty() ? "" : &name == &names.back() ? " or " : ", ") + name;
    throw CLI::ValidationError(option, fmt::format("unknown value {}; it takes {}", text, all));
}

namespace {

/// Does a URL begin here?
bool BeginsUrl(std::string_view text) {
    return text.substr(0, 7) == "rtsp://" || text.substr(0, 8) == "rtsps://";
}

void SplitUrls(const std::string& camera, std::string_view urls, std::vector<NamedUrl>& out) {
    while (!urls.empty()) {
        std::size_t end = urls.find(',');
        while (end != std::string_view::npos && !BeginsUrl(urls.substr(end + 1)))
            end = urls.find(',', end + 1);
        out.push_back({camera, std::string(urls.substr(0, end))});
        urls.remove_prefix(end == std::string_view::npos ? urls.size() : end + 1);
    }
}

std::string Trimmed(const std::string& line) {
    const char* blanks = " \t\r";
    const std::size_t start = line.find_first_not_of(blanks);
    return start == std::string::npos ? "" : line.substr(start, line.find_last_not_of(blanks) + 1 - start);
}

}  // namespace

std::optional<std::vector<NamedUrl>> ReadCamera(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || text.find("://") < equals)
        return std::nullopt;
    std::vector<NamedUrl> urls;
    SplitUrls(text.substr(0, equals), std::string_view(text).substr(equals + 1), urls);
    return urls.empty() ? std::nullopt : std::optional(std::move(urls));
}

std::optional<std::vector<NamedUrl>> ReadCameraList(const std::string& text, int& wrong) {
    std::vector<NamedUrl> all;
    std::istringstream lines(text);
    wrong = 0;
    for (std::string raw; std::getline(lines, raw);) {
        ++wrong;
        const std::string line = Trimmed(raw);
        if (line.empty() || line.front() == '#')
            continue;
        if (BeginsUrl(line)) {
            SplitUrls("", line, all);
        } else if (auto camera = ReadCamera(line)) {
            all.insert(all.end(), camera->begin(), camera->end());
        } else {
            const std::size_t last = line.find_last_of(" \t");
            if (last == std::string::npos || line.find("://", last) == std::string::npos)
                return std::nullopt;
            SplitUrls(Trimmed(line.substr(0, last)), std::string_view(line).substr(last + 1), all);
        }
    }
    return all;
}

}  // namespace camclock::app
