#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/views/HeaderReport.h"
#include "apps/camclock/views/HexText.h"
#include "apps/camclock/views/Output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace camclock::app {
namespace {

struct InspectOptions {
    std::optional<std::string> sprop;
    std::optional<std::string> sps;
    std::optional<std::string> pps;
    std::optional<std::string> config;
    std::optional<std::string> sdp;
    bool json = false;
};

void Append(std::vector<HeaderReport>& reports, std::vector<HeaderReport> more) {
    std::move(more.begin(), more.end(), std::back_inserter(reports));
}

ExitCode RunInspect(const InspectOptions& options) {
    std::vector<HeaderReport> reports;
    if (options.sprop)
        Append(reports, InspectSprop(*options.sprop, "--sprop"));
    if (options.sps)
        reports.push_back(InspectSps(HexText::Parse(*options.sps).bytes, "--sps"));
    if (options.pps)
        reports.push_back(InspectPps(HexText::Parse(*options.pps).bytes, "--pps"));
    if (options.config)
        Append(reports, InspectMpeg4Config(*options.config, "--mp4v-config"));
    if (options.sdp) {
        std::ifstream file(*options.sdp, std::ios::binary);
        if (!file || std::filesystem::is_directory(*options.sdp))
            return Report({ExitCode::kUsage, fmt::format("cannot read {}", *options.sdp),
                           "--sdp takes the name of a file"});
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        Append(reports, InspectSdp(text, *options.sdp));
    }

    if (options.json) {
        Output::Standard().Lines(HeaderJson(reports));
    } else {
        for (const std::string& line : HeaderLines(reports))
            Output::Standard().Line(line);
    }
    return AllValid(reports) ? ExitCode::kSuccess : ExitCode::kInvalidHeader;
}

/// An empty result is CLI11's way to say that the value is good.
std::string CheckHex(const std::string& text) {
    return HexText::Parse(text).error;
}

}  // namespace

void AddInspect(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<InspectOptions>();
    CLI::App* command = program.add_subcommand(
        "inspect", "Print what the headers of a stream say; ends with 16 when one of them is not valid");
    CLI::App* headers = command->add_option_group("Headers", "At least one of them");
    headers->require_option();
    headers->add_option("--sprop", options->sprop, "H.264: the sprop-parameter-sets of an SDP (RFC 6184)")
        ->type_name("TEXT");
    headers->add_option("--sps", options->sps, "H.264: a sequence parameter set, a NAL unit in hexadecimal")
        ->type_name("HEX")
        ->check(CheckHex);
    headers->add_option("--pps", options->pps, "H.264: a picture parameter set, likewise")
        ->type_name("HEX")
        ->check(CheckHex);
    headers->add_option("--mp4v-config", options->config, "MPEG-4 Visual: the config of an SDP (RFC 6416)")
        ->type_name("HEX")
        ->check(CheckHex);
    headers->add_option("--sdp", options->sdp, "A session description: whatever its video streams carry")
        ->type_name("FILE");
    command->add_flag("--json", options->json, "Print JSON in place of a table");
    command->callback([options, &exitCode] { exitCode = RunInspect(*options); });
}

}  // namespace camclock::app
