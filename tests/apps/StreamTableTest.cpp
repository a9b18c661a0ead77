#include "apps/camclock/views/StreamTable.h"

#include "apps/camclock/views/TextTable.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kStart{Ticks(17'952'288'110'000'000)};  // 2026-11-21 02:40:11 UTC
constexpr Terminal::Size kNoScreen{TextTable::kUnlimited, TextTable::kUnlimited};

StreamStatistics TwentySixFrames() {
    StreamStatistics statistics;
    for (int i = 0; i < 26; ++i) {
        FrameRow row;
        row.frame.arrived_host = kStart + milliseconds(40 * i);
        row.frame.captured_host = row.frame.arrived_host - milliseconds(30);
        row.frame.captured_cam = row.frame.captured_host + std::chrono::hours(1);
        row.frame.trust = receiver::Trust::kGood;
        row.frame.pts = 3'600 * i;
        row.frame.rtp_ts = static_cast<std::uint32_t>(3'600 * i);
        row.frame.bytes = 5'000;
        statistics.Add(row);
    }
    return statistics;
}

StreamLine Line(int number, const std::string& camera, const StreamStatistics& statistics) {
    StreamLine line;
    line.name = {number, camera, "video"};
    line.url = "rtsp://" + camera + "/live";
    line.transport = "udp";
    line.state = "receiving";
    line.codec = "H.264";
    line.size = "640x480 4:2:0";
    line.statistics = &statistics;
    line.counts.D = milliseconds(-3'723'500);
    line.counts.reports = 2;
    line.counts.lost = 4;
    line.counts.lastReport_host = kStart;
    return line;
}

StreamLine Unreached(int number, const StreamStatistics& none) {
    StreamLine line;
    line.name = {number, "yard", "video"};
    line.state = "waiting";
    line.failure = "no connection: yard does not answer";
    line.statistics = &none;
    return line;
}

TEST(LiveTable, ShowsOneRowAStream) {
    const StreamStatistics statistics = TwentySixFrames();
    const StreamStatistics none;
    const std::vector<std::string> expected{
        "#  camera  state      via  codec  size            fps  kbit/s  captured UTC      D ms  ±us    good  lat50  "
        "lat95  jitter  lost  SR s  epoch  stable PTS",
        "1  gate    receiving  udp  H.264  640x480 4:2:0  25.0    1000  02:40:11.970  -3723500    -  100.0%   30.0  "
        " 30.0     0.0     4   1.5      1       90000",
        "2  yard    waiting    -    -      -                 -       -             -         -    -       -      -  "
        "    -       -     -     -      -           -",
    };
    EXPECT_EQ(LiveTable({Line(1, "gate", statistics), Unreached(2, none)}, kStart + milliseconds(1'500),
                        kNoScreen, 0),
              expected);
}

TEST(LiveTable, LeavesColumnsOutByTheirRankWhereThereIsNoRoom) {
    const StreamStatistics statistics = TwentySixFrames();
    const std::string name = "rtsp://gate.example:8554/a/long/path/to/the/live/picture";
    const auto eighty = LiveTable({Line(1, name, statistics)}, kStart, {80, 24}, 0);
    EXPECT_EQ(eighty.front(), "#  camera            state       fps  captured UTC      D ms    good  lost");
    const auto sixty = LiveTable({Line(1, name, statistics)}, kStart, {60, 20}, 0);
    EXPECT_EQ(sixty.front(), "#  camera            state       fps  captured UTC    good");
    EXPECT_EQ(sixty.back(), "1  gate.ex~/picture  receiving  25.0  02:40:11.970  100.0%");
}

TEST(LiveTable, FitsEveryScreen) {
    const StreamStatistics statistics = TwentySixFrames();
    std::vector<StreamLine> lines;
    for (int i = 1; i <= 45; ++i)
        lines.push_back(Line(i, "rtsp://gate.example:8554/a/long/path/" + std::to_string(i), statistics));
    for (std::size_t columns = 1; columns < 200; ++columns) {
        for (const std::size_t rows : {2U, 5U, 20U, 24U, 47U, 48U, 60U}) {
            const auto table = LiveTable(lines, kStart, {columns, rows}, 3);
            EXPECT_LT(table.size(), std::max<std::size_t>(rows, 4)) << columns << "x" << rows;
            for (const std::string& line : table)
                EXPECT_LT(ShownWidth(line), std::max<std::size_t>(columns, 2)) << line;
        }
    }
}

TEST(LiveTable, ShowsEveryStreamOnSomePage) {
    const StreamStatistics statistics = TwentySixFrames();
    std::vector<StreamLine> lines;
    for (int i = 1; i <= 45; ++i)
        lines.push_back(Line(i, "gate", statistics));
    std::size_t seen = 0;
    for (std::size_t page = 0; page < 3; ++page)
        seen += LiveTable(lines, kStart, {80, 24}, page).size() - 2;
    EXPECT_EQ(seen, lines.size());
    EXPECT_EQ(LiveTable(lines, kStart, {80, 24}, 1).back(), "22 to 42 of 45 streams (page 2 of 3)");
    EXPECT_EQ(LiveTable(lines, kStart, {80, 24}, 3), LiveTable(lines, kStart, {80, 24}, 0));
}

TEST(SummaryTable, ShowsTheWholeRunAndWhatFailed) {
    const StreamStatistics statistics = TwentySixFrames();
    const StreamStatistics none;
    const std::vector<std::string> expected{
        "#  camera  via  codec  size           frames  seconds   fps  kbit/s  lost  reports  epochs    good  lat50  "
        "lat95  lat max  jitter      D ms",
        "1  gate    udp  H.264  640x480 4:2:0      26      1.0  25.0    1000     4        2       1  100.0%   30.0  "
        " 30.0     30.0     0.0  -3723500",
        "2  yard    -    -      -                   0        -     -       -     -        -       -       -      -  "
        "    -        -       -         -",
        "2  yard: no connection: yard does not answer",
    };
    EXPECT_EQ(SummaryTable({Line(1, "gate", statistics), Unreached(2, none)}, TextTable::kUnlimited),
              expected);
    for (const std::string& line : SummaryTable({Line(1, "gate", statistics), Unreached(2, none)}, 60))
        EXPECT_LE(ShownWidth(line), 60U) << line;
}

TEST(SummaryJson, HoldsEveryFigure) {
    const StreamStatistics statistics = TwentySixFrames();
    const StreamStatistics none;
    const auto streams =
        nlohmann::json::parse(SummaryJson({Line(1, "gate", statistics), Unreached(2, none)}));
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[0]["camera"], "gate");
    EXPECT_EQ(streams[0]["frames"], 26);
    EXPECT_EQ(streams[0]["lost"], 4);
    EXPECT_EQ(streams[0]["failure"], nullptr);
    EXPECT_DOUBLE_EQ(streams[0]["latency_ms"]["p95"], 30.0);
    EXPECT_EQ(streams[1]["frames"], 0);
    EXPECT_EQ(streams[1]["latency_ms"]["p95"], nullptr);
    EXPECT_EQ(streams[1]["failure"], "no connection: yard does not answer");
}

TEST(TextTable, CountsCharactersNotBytes) {
    EXPECT_EQ(ShownWidth("±us"), 3U);
    TextTable table({{"±", TextTable::Align::kLeft}, {"b"}});
    table.AddRow({"ab", "1"});
    table.AddRow({"c"});
    EXPECT_EQ(table.Lines(), (std::vector<std::string>{"±   b", "ab  1", "c"}));
}

TEST(CutToWidth, TakesFromTheMiddleAndKeepsCharactersWhole) {
    EXPECT_EQ(CutToWidth("abcdefgh", 8), "abcdefgh");
    EXPECT_EQ(CutToWidth("abcdefgh", 5), "ab~gh");
    EXPECT_EQ(CutToWidth("äöüäöü", 4), "ä~öü");
    EXPECT_EQ(CutToWidth("äöü", 2), "äö");
    EXPECT_EQ(CutToWidth("abc", 0), "");
}

}  // namespace
}  // namespace camclock::app
