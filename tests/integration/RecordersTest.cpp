// The examples that record, against a camera whose clock is an hour behind.
#include "RunProgram.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace camclock::app::test {
namespace {

// As in RtspStreamTest: only tells a right answer from a wrong one.
constexpr double kCoarse_s = 0.2;

/// One line of a recorder: "168588248 captured at 1795299552.671920, trust 2".
struct Row {
    unsigned rtp_ts = 0;
    double captured_s = 0.0;  // host, since 1970
    int trust = -1;           // 0: arrival only, 1: settling, 2: good, 3: replaced
};

TestCamera::Settings AnHourBehind() {
    TestCamera::Settings settings = With(TestCamera::Stream::kH264);
    settings.offset = std::chrono::hours(-1);
    return settings;
}

std::vector<Row> Record(const std::string& example, const TestCamera& camera) {
    const Outcome outcome = Run(example, camera.Url() + " 5");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    std::vector<Row> rows;
    for (const std::string& line : outcome.OutLines()) {
        Row row;
        EXPECT_EQ(std::sscanf(line.c_str(), "%u captured at %lf, trust %d", &row.rtp_ts, &row.captured_s,
                              &row.trust),
                  3)
            << line;
        rows.push_back(row);
    }
    EXPECT_GT(rows.size(), 60U) << outcome.err;
    return rows;
}

/// Of the frames that are good, each lies at the time of capture that the camera knows.
void ExpectTruth(const std::vector<Row>& rows, const TestCamera& camera) {
    int good = 0;
    for (const Row& row : rows) {
        if (row.trust != 2)
            continue;
        ++good;
        const auto truth = camera.TruthOf(row.rtp_ts);
        ASSERT_TRUE(truth) << row.rtp_ts;
        const std::chrono::duration<double> made = truth->madeAt_host.time_since_epoch();
        EXPECT_NEAR(row.captured_s, made.count(), kCoarse_s) << row.rtp_ts;
    }
    EXPECT_GT(good, 10);
}

TEST(Recorders, OverPlainSockets) {
#ifndef CAMCLOCK_UdpRecorder
    GTEST_SKIP() << "the examples are not built";
#else
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(AnHourBehind());
    ExpectTruth(Record(CAMCLOCK_UdpRecorder, camera), camera);
#endif
}

TEST(Recorders, OverRtspsrc) {
#ifndef CAMCLOCK_RtspsrcRecorder
    GTEST_SKIP() << "the example is not built";
#else
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(AnHourBehind());
    ExpectTruth(Record(CAMCLOCK_RtspsrcRecorder, camera), camera);
#endif
}

TEST(Recorders, OverLibavformat) {
#ifndef CAMCLOCK_AvformatRecorder
    GTEST_SKIP() << "the example is not built: there is no libavformat";
#else
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(AnHourBehind());
    const std::vector<Row> rows = Record(CAMCLOCK_AvformatRecorder, camera);
    // libavformat counts time stamps from its first packet on, so that the camera's truth cannot be asked.
    // Before the first report a frame's time is its arrival less the mean latency: near enough to tell an
    // hour.
    ASSERT_FALSE(rows.empty());
    ASSERT_EQ(rows.front().trust, 0);
    int good = 0;
    for (const Row& row : rows) {
        if (row.trust != 2)
            continue;
        ++good;
        const double sinceFirst_s = row.rtp_ts / 90'000.0;
        EXPECT_NEAR(row.captured_s, rows.front().captured_s + sinceFirst_s, kCoarse_s) << row.rtp_ts;
    }
    EXPECT_GT(good, 10);
#endif
}

}  // namespace
}  // namespace camclock::app::test
