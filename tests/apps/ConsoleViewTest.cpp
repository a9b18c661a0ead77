#include "apps/camclock/views/ConsoleView.h"

#include "apps/camclock/views/TextTable.h"

#include <gtest/gtest.h>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kStart{Ticks(17'952'288'110'000'000)};  // 2026-11-21 02:40:11 UTC

StreamStatistics TwentySixFrames() {
    StreamStatistics statistics;
    for (int i = 0; i < 26; ++i) {
        FrameRow row;
        row.frame.TOR_host = kStart + milliseconds(40 * i);
        row.TOC_host = row.frame.TOR_host - milliseconds(30);
        row.rtcpSync = true;
        row.stablePts = 3'600 * i;
        row.D = milliseconds(-3'723'500);
        row.reports = 2;
        row.lastReport_host = kStart;
        statistics.Add(row);
    }
    return statistics;
}

TEST(LiveTable, ShowsOneRowACamera) {
    const StreamStatistics statistics = TwentySixFrames();
    const StreamStatistics none;
    CameraLine first{1, "rtsp://gate/live", "udp", "receiving", "H.264", "640x480", &statistics};
    CameraLine second{2, "rtsp://yard/live", "tcp", "connecting", "", "", &none};
    const std::vector<std::string> expected{
        "1  rtsp://gate/live  udp  H.264  receiving",
        "2  rtsp://yard/live  tcp  connecting",
        "",
        "#  size      fps  captured UTC      D ms  ±us    good  lat50  lat95  SR s  stable PTS",
        "1  640x480  25.0  02:40:11.970  -3723500    0  100.0%   30.0   30.0   1.5       90000",
        "2  -           -             -         -    -       -      -      -     -           -",
    };
    EXPECT_EQ(LiveTable({first, second}, kStart + milliseconds(1'500)), expected);
}

TEST(SummaryTable, ShowsTheWholeRun) {
    const StreamStatistics statistics = TwentySixFrames();
    CameraLine camera{1, "rtsp://gate/live", "udp", "", "H.264", "640x480", &statistics};
    const std::vector<std::string> expected{
        "1  rtsp://gate/live  udp  H.264",
        "",
        "#  frames  seconds   fps  lost  reports    good  lat50  lat95  lat max      D ms  ±us",
        "1      26      1.0  25.0     0        2  100.0%   30.0   30.0     30.0  -3723500    0",
    };
    EXPECT_EQ(SummaryTable({camera}), expected);
}

TEST(TextTable, CountsCharactersNotBytes) {
    EXPECT_EQ(ShownWidth("±us"), 3U);
    TextTable table({{"±", TextTable::Align::kLeft}, {"b"}});
    table.AddRow({"ab", "1"});
    table.AddRow({"c"});
    EXPECT_EQ(table.Lines(), (std::vector<std::string>{"±   b", "ab  1", "c"}));
}

}  // namespace
}  // namespace camclock::app
