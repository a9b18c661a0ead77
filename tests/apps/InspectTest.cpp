#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/views/HeaderReport.h"
#include "apps/camclock/views/HexText.h"
#include "apps/camclock/views/Output.h"

#include "support/Base64.h"
#include "support/H264Headers.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace camclock::app {
namespace {

using camclock::testing::EncodeBase64;
using camclock::testing::FullHdSps;
using camclock::testing::PpsFields;

// QCIF by FFmpeg's encoder.
constexpr const char* kConfig = "000001b001000001b58913000001000000012000c48d8800cd0584121443"
                                "000001b24c61766335392e33372e313030";

std::string Sprop() {
    return EncodeBase64(FullHdSps().Bytes()) + "," + EncodeBase64(PpsFields().Bytes());
}

std::string Hex(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789ABCDEF"[byte >> 4U];
        text += "0123456789ABCDEF"[byte & 0xFU];
    }
    return text;
}

struct Outcome {
    int exitCode;
    std::string out;
};

/// `camclock inspect` with these arguments.
Outcome Inspect(std::vector<std::string> arguments) {
    CLI::App program;
    ExitCode exitCode = ExitCode::kSuccess;
    AddInspect(program, exitCode);
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
    arguments.emplace_back("inspect");
    ::testing::internal::CaptureStdout();
    try {
        program.parse(arguments);
    } catch (const CLI::ParseError& error) {
        ::testing::internal::GetCapturedStdout();
        return {static_cast<int>(ExitCode::kUsage), error.what()};
    }
    Output::Standard().Finish();
    return {static_cast<int>(exitCode), ::testing::internal::GetCapturedStdout()};
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Inspect, SpropAsATable) {
    const Outcome outcome = Inspect({"--sprop", Sprop()});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(Has(outcome.out, "H.264 sequence parameter set (--sprop): valid\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  pic_width_in_mbs_minus1                       119\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  => 1920 x 1080, 4:2:0\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "H.264 picture parameter set (--sprop): valid\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  entropy_coding_mode_flag                      1\n")) << outcome.out;
}

TEST(Inspect, SpropAsJson) {
    const Outcome outcome = Inspect({"--json", "--sprop", Sprop()});
    EXPECT_EQ(outcome.exitCode, 0);
    const auto json = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(json["valid"], true);
    ASSERT_EQ(json["headers"].size(), 2U);
    const auto& sps = json["headers"][0];
    EXPECT_EQ(sps["header"], "SPS");
    EXPECT_EQ(sps["valid"], true);
    EXPECT_EQ(sps["fields"]["profile_idc"], 100);
    EXPECT_EQ(sps["fields"]["offset_for_ref_frame"], nlohmann::json::array());
    EXPECT_EQ(sps["picture"]["width"], 1920);
    EXPECT_EQ(sps["picture"]["height"], 1080);
    EXPECT_EQ(sps["picture"]["pixel_format"], "4:2:0");
    EXPECT_EQ(json["headers"][1]["header"], "PPS");
}

TEST(Inspect, WhatIsMissingOrCutShortIsNotValid) {
    Outcome outcome = Inspect({"--sprop", EncodeBase64(FullHdSps().Bytes())});
    EXPECT_EQ(outcome.exitCode, 16);
    EXPECT_TRUE(Has(outcome.out, "H.264 picture parameter set (--sprop): NOT VALID: not in the data\n"))
        << outcome.out;

    outcome = Inspect({"--sps", "6764"});
    EXPECT_EQ(outcome.exitCode, 16);
    EXPECT_TRUE(Has(outcome.out, "(--sps): NOT VALID: the data end before the header does\n")) << outcome.out;
    EXPECT_FALSE(Has(outcome.out, "=>"));

    outcome = Inspect({"--sprop", ""});
    EXPECT_EQ(outcome.exitCode, 16);
    outcome = Inspect({"--pps", ""});
    EXPECT_EQ(outcome.exitCode, 16);
    outcome = Inspect({"--mp4v-config", "000001B0F5"});
    EXPECT_EQ(outcome.exitCode, 16);
    EXPECT_TRUE(Has(outcome.out, "MPEG-4 video object layer (--mp4v-config): NOT VALID: not in the data\n"))
        << outcome.out;
}

TEST(Inspect, ParameterSetsInHexadecimal) {
    const Outcome outcome = Inspect({"--sps", Hex(FullHdSps().Bytes()), "--pps", Hex(PpsFields().Bytes())});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(Has(outcome.out, "  => 1920 x 1080, 4:2:0\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "H.264 picture parameter set (--pps): valid\n")) << outcome.out;
}

TEST(Inspect, MixedUpParameterSetsAreNoticed) {
    const Outcome outcome = Inspect({"--sps", Hex(PpsFields().Bytes())});
    EXPECT_TRUE(Has(outcome.out, "its NAL header says type 8, not 7")) << outcome.out;
}

TEST(Inspect, Mpeg4Configuration) {
    const Outcome outcome = Inspect({"--mp4v-config", kConfig});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(Has(outcome.out, "  visual_object_sequence_start_code   0x000001B0\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  vop_time_increment_resolution       25\n")) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "  => 176 x 144, 4:2:0\n")) << outcome.out;
    EXPECT_FALSE(Has(outcome.out, "video object plane")) << outcome.out;
}

TEST(Inspect, MalformedHexIsAClearError) {
    Outcome outcome = Inspect({"--sps", "67xx"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, "--sps: not hexadecimal: character 3 is 'x'");
    outcome = Inspect({"--pps", "68 0"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, "--pps: not hexadecimal: character 3 is code 0x20");
    outcome = Inspect({"--mp4v-config", "000001B"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, "--mp4v-config: not whole bytes: 7 hexadecimal digits");
}

TEST(Inspect, AsksForAtLeastOneHeader) {
    EXPECT_EQ(Inspect({}).exitCode, 2);
    EXPECT_EQ(Inspect({"--json"}).exitCode, 2);
}

TEST(Inspect, SessionDescription) {
    const std::filesystem::path path =
        std::filesystem::path(::testing::TempDir()) / "camclock-inspect-test.sdp";
    std::ofstream(path)
        << "v=0\nm=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 sprop-parameter-sets=" << Sprop()
        << "\nm=video 0 RTP/AVP 97\na=rtpmap:97 MP4V-ES/90000\na=fmtp:97 config=" << kConfig << "\n";
    const Outcome outcome = Inspect({"--sdp", path.string()});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
    EXPECT_TRUE(Has(outcome.out, "=> 1920 x 1080, 4:2:0"));
    EXPECT_TRUE(Has(outcome.out, "=> 176 x 144, 4:2:0"));

    std::ofstream(path) << "m=video 0 RTP/AVP 96 97 26\na=rtpmap:96 H264/90000\na=rtpmap:97 MP4V-ES/90000\n"
                           "a=fmtp:97 config=000001B\n";
    const Outcome poor = Inspect({"--sdp", path.string()});
    EXPECT_EQ(poor.exitCode, 16);
    EXPECT_TRUE(Has(poor.out, "NOT VALID: no sprop-parameter-sets: they may come in band")) << poor.out;
    EXPECT_TRUE(Has(poor.out, "NOT VALID: config is not whole bytes: 7 hexadecimal digits")) << poor.out;
    EXPECT_TRUE(Has(poor.out, "NOT VALID: neither H.264 nor MPEG-4 Visual: a static payload type"))
        << poor.out;

    std::ofstream(path) << "";
    EXPECT_TRUE(Has(Inspect({"--sdp", path.string()}).out, "NOT VALID: no video stream"));
    std::filesystem::remove(path);
    EXPECT_EQ(Inspect({"--sdp", path.string()}).exitCode, 2);
    EXPECT_EQ(Inspect({"--sdp", ::testing::TempDir()}).exitCode, 2);
}

TEST(HexText, ReadsBothCases) {
    EXPECT_EQ(HexText::Parse("00aBfF").bytes, (std::vector<unsigned char>{0x00, 0xAB, 0xFF}));
    EXPECT_EQ(HexText::Parse("").bytes, std::vector<unsigned char>{});
    EXPECT_EQ(HexText::Parse("").error, "");
    EXPECT_NE(HexText::Parse("0x12").error, "");
}

}  // namespace
}  // namespace camclock::app
