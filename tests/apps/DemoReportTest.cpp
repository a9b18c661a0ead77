#include "apps/camclock/views/DemoReport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

/// A frame that was made at `made_ms`, by a clock that is an hour ahead, and arrived 60 ms later; the library
/// finds its time with an error of `error_ms`.
struct Sample {
    FrameRow row;
    TestCamera::Truth truth;
};

Sample MakeSample(std::int64_t made_ms, std::int64_t error_ms) {
    Sample sample;
    sample.truth.madeAt_host = TimePoint(milliseconds(made_ms));
    sample.truth.madeAt_cam = sample.truth.madeAt_host + std::chrono::hours(1);
    sample.row.frame.arrived_host = sample.truth.madeAt_host + milliseconds(60);
    sample.row.frame.captured_cam = sample.truth.madeAt_cam;
    sample.row.frame.captured_host = sample.truth.madeAt_host + milliseconds(error_ms);
    sample.row.frame.median_host = sample.row.frame.captured_host;
    sample.row.frame.precise_host = sample.truth.madeAt_host + std::chrono::microseconds(250);
    sample.row.frame.trust = receiver::Trust::kGood;
    sample.row.frame.D = milliseconds(-3'600'001);
    return sample;
}

TEST(DemoComparison, MeasuresTheMeanLatencyThenLetsItSettle) {
    DemoComparison comparison("UDP", std::nullopt);
    std::int64_t now = 0;
    for (std::size_t i = 1; i < DemoComparison::kMeasured; ++i) {
        const Sample sample = MakeSample(now += 40, 30);
        EXPECT_FALSE(comparison.Add(sample.row, sample.truth));
    }
    const Sample last = MakeSample(now += 40, 30);
    const auto measured = comparison.Add(last.row, last.truth);
    ASSERT_TRUE(measured);
    EXPECT_EQ(measured->mean, milliseconds(60));
    EXPECT_EQ(measured->least, std::chrono::microseconds(30'250)) << "the line's, which was set to 30 ms";
    for (std::size_t i = 0; i < DemoComparison::kSettling; ++i) {
        const Sample sample = MakeSample(now += 40, 30);
        EXPECT_FALSE(comparison.Add(sample.row, sample.truth));
    }
    EXPECT_EQ(comparison.Result().compared, 0U);
    for (int i = 0; i < 100; ++i) {
        const Sample sample = MakeSample(now += 40, i % 2 == 0 ? -2 : 1);
        EXPECT_FALSE(comparison.Add(sample.row, sample.truth));
    }
    const DemoResult result = comparison.Result();
    EXPECT_EQ(result.frames, DemoComparison::kMeasured + DemoComparison::kSettling + 100);
    EXPECT_EQ(result.compared, 100U);
    EXPECT_EQ(result.meanLatency_ms, 60);
    EXPECT_DOUBLE_EQ(result.camclock.median, 1.0);
    EXPECT_DOUBLE_EQ(result.camclock.max, 2.0);
    EXPECT_DOUBLE_EQ(result.precise.max, 0.25);
    EXPECT_DOUBLE_EQ(result.reception.p99, 60.0);
    EXPECT_DOUBLE_EQ(result.camera.median, 3'600'000.0);
    EXPECT_DOUBLE_EQ(result.goodShare, 1.0);
    EXPECT_DOUBLE_EQ(result.D_found_ms, -3'600'001.0);
    EXPECT_DOUBLE_EQ(result.D_true_ms, -3'600'000.0);
}

TEST(DemoComparison, AGivenMeanLatencyIsNotMeasured) {
    DemoComparison comparison("TCP", milliseconds(25));
    const Sample sample = MakeSample(0, 0);
    for (std::size_t i = 0; i <= DemoComparison::kSettling; ++i)
        EXPECT_FALSE(comparison.Add(sample.row, sample.truth));
    EXPECT_EQ(comparison.Result().compared, 1U);
    EXPECT_EQ(comparison.Result().meanLatency_ms, 25);
}

TEST(DemoComparison, FramesBeforeTheFirstReportAreCountedOnly) {
    DemoComparison comparison("UDP", milliseconds(25));
    Sample sample = MakeSample(0, 0);
    sample.row.frame.captured_cam = sample.row.frame.arrived_host;
    for (int i = 0; i < 200; ++i)
        comparison.Add(sample.row, sample.truth);
    comparison.AddUnknown();
    EXPECT_EQ(comparison.Result().frames, 201U);
    EXPECT_EQ(comparison.Result().compared, 0U);
    EXPECT_EQ(comparison.Result().goodShare, 0.0);
}

TEST(DemoTable, ShowsWhatWasFoundAgainstTheNaiveAnswers) {
    DemoResult result;
    result.transport = "UDP";
    result.frames = 498;
    result.compared = 391;
    result.meanLatency_ms = 60;
    result.camclock = {0.5, 1.25, 1.5, 2.0};
    result.precise = {0.01, 0.02, 0.03, 0.04};
    result.reception = {60.0, 64.0, 83.0, 107.0};
    result.camera = {3723500.0, 3723500.5, 3723501.0, 3723501.0};
    result.goodShare = 0.998;
    result.D_found_ms = -3723500;
    result.D_true_ms = -3723501.002;
    const std::vector<std::string> expected{
        "error in ms, UDP        median         p99         max",
        "camclock, median          0.50        1.50        2.00",
        "camclock, precise         0.01        0.03        0.04",
        "time of reception        60.00       83.00      107.00",
        "camera's own clock  3723500.00  3723501.00  3723501.00",
        "498 frames, 391 compared, 99.8% of them good",
        "D found -3723500 ms, true -3723501.002 ms",
        "mean latency 60 ms",
    };
    EXPECT_EQ(DemoTable({result}), expected);
}

TEST(DemoJson, HoldsEveryTransport) {
    DemoResult udp;
    udp.transport = "UDP";
    udp.camclock.p99 = 1.5;
    DemoResult tcp;
    tcp.transport = "TCP";
    const auto json = nlohmann::json::parse(DemoJson({udp, tcp}));
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0]["transport"], "UDP");
    EXPECT_EQ(json[0]["camclock_error_ms"]["p99"], 1.5);
    EXPECT_EQ(json[1]["transport"], "TCP");
}

}  // namespace
}  // namespace camclock::app
