#include "apps/camclock/views/FrameColumns.h"

#include "apps/camclock/views/FrameText.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace camclock::app {
namespace {

// 2026-11-21 02:40:11.1239999 UTC
constexpr TimePoint kTime{Ticks(17'952'288'111'239'999)};

const StreamName kName{2, "gate, left", "video"};

FrameRow MakeRow() {
    FrameRow row;
    row.stream = 2;
    row.frame.rtp_ts = 4'294'967'295;
    row.frame.seq = 65'535;
    row.frame.bytes = 12'345;
    row.frame.type = MediaPacket::kFrameI;
    row.frame.arrived_host = kTime;
    row.frame.captured_cam = kTime + std::chrono::hours(1);
    row.frame.captured_host = kTime - std::chrono::milliseconds(30);
    row.frame.median_host = row.frame.captured_host;
    row.frame.precise_host = row.frame.captured_host + std::chrono::microseconds(7);
    row.frame.uncertainty = std::chrono::microseconds(250);
    row.frame.trust = receiver::Trust::kGood;
    row.frame.epoch = 3;
    row.frame.pts = 900'000;
    row.frame.D = std::chrono::milliseconds(-3'600'030);
    return row;
}

TEST(IsoTime, IsUtcWithMilliseconds) {
    EXPECT_EQ(IsoTime(TimePoint{}), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(IsoTime(kTime), "2026-11-21T02:40:11.123Z");
}

TEST(IsoTime, DropsTicksTowardThePastAlsoBefore1970) {
    EXPECT_EQ(IsoTime(TimePoint(Ticks(-1))), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(IsoTime(TimePoint(Ticks(9'999))), "1970-01-01T00:00:00.000Z");
}

TEST(IsoTime, SurvivesTheEndsOfTime) {
    EXPECT_FALSE(IsoTime((TimePoint::min)()).empty());
    EXPECT_FALSE(IsoTime((TimePoint::max)()).empty());
}

TEST(CsvLine, HoldsOneFrame) {
    EXPECT_EQ(CsvHeader(),
              "stream,TOC_cam,TOC_host,TOR_host,trust,stable_pts,frame_type,bytes,rtp_ts,seq,rtcp_sync,D_ms,"
              "epoch,uncertainty,median,precise,camera,media");
    EXPECT_EQ(
        CsvLine(MakeRow(), kName),
        "2,2026-11-21T03:40:11.123Z,2026-11-21T02:40:11.093Z,2026-11-21T02:40:11.123Z,good,900000,I,12345,"
        "4294967295,65535,1,-3600030,3,250,2026-11-21T02:40:11.093999Z,2026-11-21T02:40:11.094006Z,"
        "\"gate, left\",video");
}

TEST(CsvLine, LeavesEmptyWhatIsNotKnown) {
    FrameRow row = MakeRow();
    row.frame.uncertainty.reset();
    row.frame.precise_host = {};
    EXPECT_NE(CsvLine(row, kName).find(",3,,2026-11-21T02:40:11.093999Z,,\"gate"), std::string::npos);
    EXPECT_NE(JsonLine(row, kName).find(R"("uncertainty":null)"), std::string::npos);
}

TEST(JsonLine, HoldsOneFrame) {
    EXPECT_EQ(JsonLine(MakeRow(), kName),
              R"({"stream":2,"TOC_cam":"2026-11-21T03:40:11.123Z","TOC_host":"2026-11-21T02:40:11.093Z",)"
              R"("TOR_host":"2026-11-21T02:40:11.123Z","trust":"good","stable_pts":900000,"frame_type":"I",)"
              R"("bytes":12345,"rtp_ts":4294967295,"seq":65535,"rtcp_sync":true,"D_ms":-3600030,"epoch":3,)"
              R"("uncertainty":250,"median":"2026-11-21T02:40:11.093999Z",)"
              R"("precise":"2026-11-21T02:40:11.094006Z","camera":"gate, left","media":"video"})");
}

/// The documentation's table holds the columns of the program, in their order and word for word.
TEST(FrameColumns, StandInTheDocumentation) {
    std::ifstream file(CAMCLOCK_SOURCE_DIR "/docs/program.md");
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::string table = "| field | unit | what it holds |\n| --- | --- | --- |\n";
    for (const FrameColumn& column : FrameColumns())
        table += std::string("| `") + column.name + "` | " + column.unit +
                 (*column.unit == '\0' ? "| " : " | ") + column.what + " |\n";
    EXPECT_NE(text.find(table + "\n"), std::string::npos) << table;
}

TEST(FrameTypeText, NamesEveryType) {
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameUnknown), "?");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameI), "I");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameB), "B");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameP), "P");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameSprite), "S");
}

TEST(TrustText, NamesEveryKind) {
    EXPECT_STREQ(TrustText(receiver::Trust::kArrivalOnly), "arrival");
    EXPECT_STREQ(TrustText(receiver::Trust::kSettling), "settling");
    EXPECT_STREQ(TrustText(receiver::Trust::kGood), "good");
    EXPECT_STREQ(TrustText(receiver::Trust::kReplaced), "replaced");
}

}  // namespace
}  // namespace camclock::app
