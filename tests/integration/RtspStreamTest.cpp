#include "RunProgram.h"

#include "apps/camclock/views/FrameColumns.h"
#include "apps/camclock/views/FrameText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace camclock::app::test {
namespace {

// A machine under load delays packets by many milliseconds; these bounds only tell a right answer from a
// wrong one.
constexpr double kCoarse_ms = 200.0;

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, ',');)
        fields.push_back(field);
    return fields;
}

TEST(Demo, FindsTheTimesOfCaptureOverUdpAndTcp) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const Outcome outcome = RunProgram("demo --duration 9 --format json");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const auto results = nlohmann::json::parse(outcome.out);
    ASSERT_EQ(results.size(), 2U);
    EXPECT_EQ(results[0]["transport"], "UDP");
    EXPECT_EQ(results[1]["transport"], "TCP");
    for (const auto& result : results) {
        SCOPED_TRACE(result.dump());
        EXPECT_GT(result["frames"], 50);
        EXPECT_GT(result["compared"], 10);
        EXPECT_LT(result["camclock_error_ms"]["p99"], kCoarse_ms);
        EXPECT_GT(result["camera_clock_error_ms"]["median"], 3'723'000.0);
        EXPECT_NEAR(result["D_found_ms"], result["D_true_ms"].get<double>(), kCoarse_ms);
        EXPECT_NEAR(result["D_true_ms"], -3'723'500.0, 100.0);
        EXPECT_GT(result["good_share"], 0.5);
    }
}

TEST(Demo, WithoutEnoughTimeSaysSoAndFails) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const Outcome outcome = RunProgram("demo --duration 1.5 --transport tcp");
    EXPECT_EQ(outcome.exitCode, 12);
    EXPECT_NE(outcome.err.find("camclock: no sync: no frame could be compared with the truth; "
                               "let it run longer with --duration\n"),
              std::string::npos)
        << outcome.err;
}

TEST(Watch, CsvLinesTellTheTimesOfCapture) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    TestCamera::Settings settings = With(TestCamera::Stream::kH264);
    settings.offset = std::chrono::minutes(-10);
    const TestCamera camera(settings);
    const Outcome outcome = RunProgram("watch --transport udp --format csv --duration 5 " + camera.Url());
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const std::vector<std::string> lines = outcome.OutLines();
    ASSERT_GT(lines.size(), 20U) << outcome.err;
    EXPECT_EQ(lines[0], CsvHeader());

    std::set<std::string> types;
    std::size_t synced = 0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::vector<std::string> fields = Fields(lines[i]);
        ASSERT_EQ(fields.size(), FrameColumns().size()) << lines[i];
        types.insert(fields[6]);
        if (fields[10] == "0")
            continue;
        ++synced;
        const auto truth = camera.TruthOf(static_cast<std::uint32_t>(std::stoul(fields[8])));
        ASSERT_TRUE(truth) << lines[i];
        // A tick of the RTP clock is 11 us: what lies that near to the next millisecond may be told as the
        // next.
        constexpr std::chrono::microseconds kTick{12};
        EXPECT_TRUE(fields[1] == IsoTime(truth->madeAt_cam - kTick) ||
                    fields[1] == IsoTime(truth->madeAt_cam + kTick))
            << lines[i] << " but made at " << IsoTime(truth->madeAt_cam);
    }
    EXPECT_GT(synced, 10U);
    EXPECT_EQ(types, (std::set<std::string>{"I", "P"}));
    EXPECT_NE(outcome.err.find("udp  H.264"), std::string::npos) << outcome.err;  // the summary
}

TEST(Watch, MpegFourVisualGivesJsonLinesWithFrameTypes) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kMpeg4Visual);
    const TestCamera camera(With(TestCamera::Stream::kMpeg4Visual));
    const Outcome outcome = RunProgram("watch --transport tcp --format json --duration 4 " + camera.Url());
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const std::vector<std::string> lines = outcome.OutLines();
    ASSERT_GT(lines.size(), 20U) << outcome.err;
    std::set<std::string> types;
    std::int64_t lastPts = -1;
    for (const std::string& line : lines) {
        const auto frame = nlohmann::json::parse(line);
        types.insert(frame["frame_type"].get<std::string>());
        EXPECT_GT(frame["stable_pts"], lastPts);
        lastPts = frame["stable_pts"];
    }
    EXPECT_EQ(types, (std::set<std::string>{"I", "P"}));
    EXPECT_NE(outcome.err.find("MPEG-4 Visual"), std::string::npos) << outcome.err;
}

TEST(Watch, TimesCodecsWhoseFrameTypesItDoesNotKnow) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kMotionJpeg);
    const TestCamera camera(With(TestCamera::Stream::kMotionJpeg));
    const Outcome outcome = RunProgram("watch --transport tcp --format json --duration 4 " + camera.Url());
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_GT(outcome.OutLines().size(), 5U) << outcome.err;
    EXPECT_NE(outcome.err.find("JPEG"), std::string::npos) << outcome.err;
}

TEST(Watch, SeveralCamerasAtOnceAndTheSummary) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera one(With(TestCamera::Stream::kH264));
    const TestCamera two(With(TestCamera::Stream::kH264));
    const Outcome outcome = RunProgram("watch --duration 3 " + one.Url() + " " + two.Url());
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("1  " + one.Url().substr(7)), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("2  " + two.Url().substr(7)), std::string::npos) << outcome.out;
}

TEST(Watch, EndsWithASummaryOnCtrlC) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(With(TestCamera::Stream::kH264));
    // `timeout` sends the signal of Ctrl-C and hands the program's own exit code on.
    const std::string program = CAMCLOCK_PROGRAM;
    const Outcome outcome = RunProgram("--version >/dev/null; timeout --preserve-status --signal=INT 3 '" +
                                       program + "' watch " + camera.Url());
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("frames  seconds"), std::string::npos) << outcome.out;
}

TEST(Watch, WritesTheTimingLogAndTheMessages) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(With(TestCamera::Stream::kH264));
    const std::string log = testing::TempDir() + "camclock_messages.log";
    std::remove(log.c_str());
    const Outcome outcome =
        RunProgram("watch --duration 3 --log-file '" + log + "' --verbose --format csv " + camera.Url());
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    std::stringstream text;
    text << std::ifstream(log).rdbuf();
    std::remove(log.c_str());
    for (const std::string& messages : {text.str(), outcome.err})
        EXPECT_NE(messages.find("RTSP.TimeFilterInstance: video Initializing mean latency [ms] with: 30"),
                  std::string::npos)
            << messages;
}

TEST(Watch, ConnectsAgainWhenAskedTo) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    TestCamera camera(With(TestCamera::Stream::kH264));
    auto run = StartProgram("watch --transport tcp --format csv --duration 6 --reconnect " + camera.Url());
    ASSERT_TRUE(WaitForFrames(camera, 25));
    camera.CloseConnections();
    const Outcome outcome = run.get();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("stream lost"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("(next attempt in 1.0 s)"), std::string::npos) << outcome.err;
    EXPECT_GT(camera.FramesSent(), 50U);
}

}  // namespace
}  // namespace camclock::app::test
