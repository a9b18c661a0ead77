#include "apps/camclock/views/ProbeWriter.h"

#include "apps/camclock/views/StreamStatistics.h"
#include "apps/camclock/views/StreamTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kStart{Ticks(17'952'288'110'000'000)};  // 2026-11-21 02:40:11 UTC

ProbeOutcome Measured() {
    ProbeOutcome outcome;
    outcome.at_host = kStart + milliseconds(42);
    outcome.result = {-3'723'500.25, 1.5};
    return outcome;
}

ProbeOutcome Failed() {
    ProbeOutcome outcome;
    outcome.failure = Failure{ExitCode::kNoReply, "a, \"b\": no answer", "advice"};
    return outcome;
}

TEST(ProbeWriter, TableLinesStandUnderTheirTitles) {
    EXPECT_EQ(ProbeTableHeader(9),
              "host       measured UTC                host-camera ms  ±rtt/2 ms  trust ±ms");
    EXPECT_EQ(ProbeTableLine("10.77.0.2", Measured(), 9),
              "10.77.0.2  2026-11-21T02:40:11.042Z       -3723500.25       1.50       4.00");
}

TEST(ProbeWriter, CsvHasAFieldForEveryTitle) {
    EXPECT_EQ(ProbeCsvHeader(), "host,time,difference_ms,uncertainty_ms,bound_ms,error");
    EXPECT_EQ(ProbeCsvLine("gate", Measured()), "gate,2026-11-21T02:40:11.042Z,-3723500.25,1.50,4.00,");
    EXPECT_EQ(ProbeCsvLine("a,b", Failed()), "\"a,b\",,,,,\"a, \"\"b\"\": no answer\"");
}

TEST(ProbeWriter, JsonHasNumbersOrAnError) {
    EXPECT_EQ(ProbeJsonLine("gate", Measured()),
              R"({"host":"gate","time":"2026-11-21T02:40:11.042Z","difference_ms":-3723500.25,)"
              R"("uncertainty_ms":1.5,"bound_ms":4.0})");
    EXPECT_EQ(ProbeJsonLine("gate", Failed()), R"({"host":"gate","error":"a, \"b\": no answer"})");
}

TEST(ProbeWriter, JsonSurvivesAnyHostName) {
    EXPECT_EQ(ProbeJsonLine("\xFF", Failed()),
              "{\"host\":\"\xEF\xBF\xBD\",\"error\":\"a, \\\"b\\\": no answer\"}");
}

/// 60 frames that arrive `latency` after their time on the camera's clock; `D` is what was measured.
StreamStatistics Frames(milliseconds latency, milliseconds D) {
    StreamStatistics statistics;
    for (int n = 0; n < 60; ++n) {
        FrameRow row;
        row.frame.captured_cam = kStart + milliseconds(40) * n;
        row.frame.arrived_host = row.frame.captured_cam + latency;
        row.frame.captured_host = row.frame.captured_cam + D;
        statistics.Add(row);
    }
    return statistics;
}

std::vector<std::string> Summary(const StreamStatistics& statistics, milliseconds D, bool icmp) {
    StreamLine camera;
    camera.counts.D = D;
    if (D.count() != 0)
        camera.counts.D_uncert = std::chrono::microseconds(1'500);
    camera.statistics = &statistics;
    camera.icmp = icmp;
    camera.meanLatency = milliseconds(30);
    return IcmpSummary({camera});
}

TEST(IcmpSummary, TellsTheDifferenceOfTheTwoModes) {
    const StreamStatistics statistics = Frames(milliseconds(1'040), milliseconds(1'004));
    EXPECT_EQ(Summary(statistics, milliseconds(1'004), true),
              (std::vector<std::string>{"1  ICMP: D 1004 ms ±1.5, D - D_hat -6 ms"}));
    EXPECT_TRUE(Summary(statistics, milliseconds(1'004), false).empty());
}

TEST(IcmpSummary, WarnsBeyondASecond) {
    EXPECT_EQ(Summary(Frames(milliseconds(30), milliseconds(1'000)), milliseconds(1'000), true).size(), 1U);
    const std::vector<std::string> lines =
        Summary(Frames(milliseconds(30), milliseconds(-1'001)), milliseconds(-1'001), true);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "1  ICMP: D -1001 ms ±1.5, D - D_hat -1001 ms");
    EXPECT_EQ(lines[1], "1  WARNING: the camera's sender reports come from another clock than its ICMP time "
                        "stamps; do not use --icmp with it");
}

TEST(IcmpSummary, SaysSoWithoutAnEstimate) {
    EXPECT_EQ(Summary(StreamStatistics(), milliseconds(0), true),
              (std::vector<std::string>{"1  ICMP: D 0 ms ±0.0, no estimate to compare it with"}));
}

}  // namespace
}  // namespace camclock::app
