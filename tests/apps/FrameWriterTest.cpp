#include "apps/camclock/views/FrameWriter.h"

#include <gtest/gtest.h>

#include <limits>

namespace camclock::app {
namespace {

// 2026-11-21 02:40:11.1239999 UTC
constexpr TimePoint kTime{Ticks(17'952'288'111'239'999)};

FrameRow MakeRow() {
    FrameRow row;
    row.stream = 2;
    row.frame.RTP_ts = 4'294'967'295;
    row.frame.seqnum = 65'535;
    row.frame.bytes = 12'345;
    row.frame.type = MediaPacket::kFrameI;
    row.frame.TOR_host = kTime;
    row.TOC_cam = kTime + std::chrono::hours(1);
    row.TOC_host = kTime - std::chrono::milliseconds(30);
    row.trust = MediaPacket::kTrustGood;
    row.stablePts = 900'000;
    row.rtcpSync = true;
    row.D = std::chrono::milliseconds(-3'600'030);
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
              "stream,TOC_cam,TOC_host,TOR_host,trust,stable_pts,frame_type,bytes,rtp_ts,seq,rtcp_sync,D_ms");
    EXPECT_EQ(
        CsvLine(MakeRow()),
        "2,2026-11-21T03:40:11.123Z,2026-11-21T02:40:11.093Z,2026-11-21T02:40:11.123Z,good,900000,I,12345,"
        "4294967295,65535,1,-3600030");
}

TEST(JsonLine, HoldsOneFrame) {
    EXPECT_EQ(JsonLine(MakeRow()),
              R"({"stream":2,"TOC_cam":"2026-11-21T03:40:11.123Z","TOC_host":"2026-11-21T02:40:11.093Z",)"
              R"("TOR_host":"2026-11-21T02:40:11.123Z","trust":"good","stable_pts":900000,"frame_type":"I",)"
              R"("bytes":12345,"rtp_ts":4294967295,"seq":65535,"rtcp_sync":true,"D_ms":-3600030})");
}

TEST(FrameTypeText, NamesEveryType) {
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameUnknown), "?");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameI), "I");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameB), "B");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameP), "P");
    EXPECT_STREQ(FrameTypeText(MediaPacket::kFrameSprite), "S");
}

TEST(TrustText, IsGoodOrBad) {
    EXPECT_STREQ(TrustText(MediaPacket::kTrustGood), "good");
    EXPECT_STREQ(TrustText(MediaPacket::kTrustBad), "bad");
}

}  // namespace
}  // namespace camclock::app
