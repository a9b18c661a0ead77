#include "timing/StreamFixture.h"

#include "support/NamedCases.h"

namespace camclock::test {
namespace {

using GetTocCam = StreamFixture;
using GetTocHost = StreamFixture;
using UpdateSyncInfo = StreamFixture;
using UpdateSyncInfoAboveInfo = SilentStreamFixture;

struct MapCase {
    const char* name;
    std::int64_t syncTicks;
    std::uint32_t report;
    std::uint32_t packet;
    double rate;
    std::int64_t expectedTicks;
};

class MapTimeTable : public ::testing::TestWithParam<MapCase> {};

TEST_P(MapTimeTable, MovesTheReportsTime) {
    const MapCase& c = GetParam();
    const auto sync = Report(c.report);
    sync->syncTime = TimePoint(Ticks(c.syncTicks));
    EXPECT_EQ(TimeFilterInstance::MapTime(sync, c.packet, c.rate), TimePoint(Ticks(c.expectedTicks)));
}

INSTANTIATE_TEST_SUITE_P(
    MapTime, MapTimeTable,
    ::testing::Values(MapCase{"PacketAtTheReport", 5'000, 77, 77, 90'000.0, 5'000},
                      MapCase{"PacketAfterTheReport", 5'000, 0, 90'000, 90'000.0, 10'005'000},
                      MapCase{"PacketBeforeTheReport", 5'000, 90'000, 0, 90'000.0, -9'995'000},
                      MapCase{"WrapsForward", 0, 0xFFFF'FFFF, 89'999, 90'000.0, 10'000'000},
                      MapCase{"HalfWayRoundIsBefore", 0, 0, 0x8000'0000, 90'000.0, -238'609'294'220},
                      MapCase{"MicrosecondsAreTruncated", 0, 0, 1, 90'000.0, 110},
                      MapCase{"MicrosecondsBackAreTruncatedTowardZero", 0, 1, 0, 90'000.0, -110},
                      MapCase{"RateOfZeroLeavesTheReportsTime", 5'000, 0, 90'000, 0.0, 5'000},
                      MapCase{"NotANumberLeavesTheReportsTime", 5'000, 0, 90'000,
                              std::numeric_limits<double>::quiet_NaN(), 5'000},
                      MapCase{"InfiniteRate", 5'000, 0, 90'000, std::numeric_limits<double>::infinity(),
                              5'000},
                      MapCase{"NegativeRate", 0, 0, 90'000, -90'000.0, -10'000'000},
                      MapCase{"MicrosecondsThatLeaveTheTicksWrapAround", 0, 0, 8'000'000, 1.0 / 1'048'576,
                              -8'347'640'368'547'758'080},
                      MapCase{"LatestTimeWrapsAround", kMax64, 0, 90'000, 90'000.0, kMin64 + 9'999'999},
                      MapCase{"EarliestTimeWrapsAround", kMin64, 90'000, 0, 90'000.0, kMax64 - 9'999'999}),
    CaseName());

TEST(MapTime, NoReportGivesNoTime) {
    EXPECT_EQ(TimeFilterInstance::MapTime(nullptr, 1, 90'000.0), kNotYetSet);
}

TEST_F(GetTocCam, WithoutAReportIsTheTimeOfReception) {
    for (const TimePoint TOR_host : {kStart + Ticks(7), TimePoint{}, kNotYetSet, (TimePoint::max)()})
        EXPECT_EQ(stream_->GetTOC_Cam(1'234, 90'000, TOR_host), TOR_host);
}

TEST_F(GetTocCam, WithoutAReportLogsEvery200thFallback) {
    for (int i = 0; i < 401; ++i)
        stream_->GetTOC_Cam(0, 90'000, kStart);
    const std::string noSync = "S7 Camera time of capture not available because there is no RTCP sync";
    EXPECT_EQ(StreamDirect(),
              (Lines{noSync, "S7 - Falling back to host time of reception the: 0 th time",  //
                     noSync, "S7 - Falling back to host time of reception the: 200 th time", noSync,
                     "S7 - Falling back to host time of reception the: 400 th time"}));
    const std::vector<CapturedEvent> events = streamLog_.Events();
    EXPECT_EQ(events[1].category, "RTSP.TimeFilterInstance");
    EXPECT_EQ(events[1].priority, 600);
}

TEST_F(GetTocCam, CountsFallbacksThatAreNotLogged) {
    streamLog_.SetPriority(log4cpp::Priority::NOTICE);
    for (int i = 0; i < 200; ++i)
        stream_->GetTOC_Cam(0, 90'000, kStart);
    EXPECT_EQ(StreamDirect(), Lines{});
    streamLog_.SetPriority(log4cpp::Priority::INFO);
    stream_->GetTOC_Cam(0, 90'000, kStart);
    EXPECT_EQ(StreamDirect(), (Lines{"S7 Camera time of capture not available because there is no RTCP sync",
                                     "S7 - Falling back to host time of reception the: 200 th time"}));
}

TEST_F(GetTocCam, EveryPacketAsksTwice) {
    for (std::uint32_t i = 0; i < 101; ++i)
        Feed(0, kStart + milliseconds(40 * i));
    const Lines direct = StreamDirect();
    ASSERT_EQ(direct.size(), 4U);
    EXPECT_EQ(direct[1], "S7 - Falling back to host time of reception the: 0 th time");
    EXPECT_EQ(direct[3], "S7 - Falling back to host time of reception the: 200 th time");
}

TEST_F(GetTocCam, MapsThroughTheLatestReport) {
    stream_->UpdateSyncInfo(Report(1'000));
    EXPECT_EQ(stream_->GetTOC_Cam(91'000, 90'000, kNotYetSet), kStart + seconds(1));
    EXPECT_EQ(stream_->GetTOC_Cam(91'000, 45'000, kNotYetSet), kStart + seconds(2));
    EXPECT_EQ(stream_->GetTOC_Cam(0xFFFF'FFFF, 90'000, kNotYetSet), kStart - microseconds(11'122));
    EXPECT_EQ(stream_->GetTOC_Cam(91'000, 0, kNotYetSet), kStart);
    EXPECT_EQ(stream_->GetTOC_Cam(1'001, 0xFFFF'FFFF, kNotYetSet), kStart);
    stream_->UpdateSyncInfo(Report(5'000, kNtpStart - 100));
    EXPECT_EQ(stream_->GetTOC_Cam(95'000, 90'000, kNotYetSet), kStart - seconds(99));
    EXPECT_EQ(StreamDirect(), Lines{});
}

TEST_F(GetTocHost, AddsTheDifferenceAndTheShift) {
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart);
    camera_.SetD(milliseconds(250));
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart + milliseconds(250));
    camera_.SetSyncShift(milliseconds(-251));
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart - milliseconds(1));
    EXPECT_EQ(stream_->GetTOC_Host(kNotYetSet), TimePoint(Ticks(kMax64 - 9'999)));
}

TEST_F(GetTocHost, ExtremeDifferencesWrapAround) {
    camera_.SetD((milliseconds::max)());  // (2^63 - 1) * 10,000 is 10,000 short of a multiple of 2^64
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart - milliseconds(1));
    camera_.SetSyncShift(milliseconds(1));
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart);
    camera_.SetD((milliseconds::min)());
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart + milliseconds(1));
    camera_.SetSyncShift((milliseconds::min)());
    EXPECT_EQ(stream_->GetTOC_Host(kStart), kStart);
}

TEST_F(UpdateSyncInfo, FillsTheReportsTime) {
    const auto report = Report(0, kNtpStart, 0x8000'0000);
    report->userData = 77;
    stream_->UpdateSyncInfo(report);
    EXPECT_EQ(report->syncTime, kStart + microseconds(499'999));
    EXPECT_EQ(report->userData, 77U);
}

TEST_F(UpdateSyncInfo, TheFirstReportIsTold) {
    stream_->UpdateSyncInfo(Report(4'294'967'295));
    ASSERT_TRUE(streamLog_.WaitForDeferred(1));
    ASSERT_TRUE(cameraLog_.WaitForDeferred(1));
    EXPECT_EQ(
        streamLog_.Deferred(),
        Lines{"S7 RTCP report #1 ;  remote reports frame 4294967295 captured at: 2023-11-14 22:13:20.000. "
              "This moves subsequent estimates 0[ms] to the future"});
    EXPECT_EQ(cameraLog_.Deferred(), Lines{"New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: true"});
}

TEST_F(UpdateSyncInfo, ReportsThatAgreeAreToldEvery20th) {
    Feed(0, kStart);
    for (std::uint32_t i = 0; i < 41; ++i)
        stream_->UpdateSyncInfo(Report(450'000 * i, kNtpStart + 5 * i));
    EXPECT_EQ(
        StreamDeferredButTraces(),
        (Lines{"S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.000, Pts0: 0",
               "S7 RTCP report #1 ;  remote reports frame 0 captured at: 2023-11-14 22:13:20.000. "
               "This moves subsequent estimates 0[ms] to the future",
               "S7 RTCP report #20 ;  remote reports frame 8550000 captured at: 2023-11-14 22:14:55.000. "
               "This moves subsequent estimates 0[ms] to the future",
               "S7 RTCP report #40 ;  remote reports frame 17550000 captured at: 2023-11-14 22:16:35.000. "
               "This moves subsequent estimates 0[ms] to the future"}));
}

/// What the stream tells about its second report; the first one stands at RTP time 0 and `kStart`.
struct ChangeCase {
    const char* name;
    std::uint32_t SyncRTP;
    std::uint32_t SyncNTPmsw;
    std::uint32_t SyncNTPlsw;
    const char* change;  // null: nothing is told
};

class SecondReport : public StreamFixture, public ::testing::WithParamInterface<ChangeCase> {};

TEST_P(SecondReport, IsToldFromAMillisecondOn) {
    const ChangeCase& c = GetParam();
    Feed(0, kStart);
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateSyncInfo(Report(c.SyncRTP, c.SyncNTPmsw, c.SyncNTPlsw));
    const Lines messages = StreamDeferredButTraces();
    if (c.change == nullptr) {
        EXPECT_EQ(messages.size(), 2U) << messages.back();
        return;
    }
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[2], "S7 New RTCP has introduced change !\nS7 RTCP report #2 ;  remote reports frame " +
                               std::to_string(c.SyncRTP) +
                               " captured at: 2023-11-14 22:13:20.000. This moves subsequent estimates " +
                               c.change + "[ms] to the future");
}

INSTANTIATE_TEST_SUITE_P(
    UpdateSyncInfo, SecondReport,
    ::testing::Values(ChangeCase{"Agrees", 450'000, kNtpStart + 5, 0, nullptr},
                      ChangeCase{"JustUnderAMillisecondLater", 450'000, kNtpStart + 5, kNtpMillisecond - 1,
                                 nullptr},
                      ChangeCase{"AMillisecondLater", 450'000, kNtpStart + 5, kNtpMillisecond, "1"},
                      ChangeCase{"JustUnderAMillisecondEarlier", 450'089, kNtpStart + 5, 0, nullptr},
                      ChangeCase{"AMillisecondEarlier", 450'090, kNtpStart + 5, 0, "-1"},
                      ChangeCase{"AnHourLater", 450'000, kNtpStart + 3'605, 0, "3600000"},
                      ChangeCase{"RtpTimeGoesBack", 4'294'967'296U - 450'000U, kNtpStart - 5, 0, nullptr},
                      ChangeCase{"EarliestNtpTime", 0, 0, 0, "-3908988800000"},
                      ChangeCase{"LatestNtpTime", 0, 0xFFFF'FFFF, 0, "385978495000"}),
    CaseName());

TEST_F(UpdateSyncInfo, RtpTimeThatWrapsBetweenReportsIsNoChange) {
    Feed(0, kStart);
    stream_->UpdateSyncInfo(Report(4'294'967'000));
    stream_->UpdateSyncInfo(Report(449'704, kNtpStart + 5));
    for (const std::string& message : StreamDeferredButTraces())
        EXPECT_EQ(message.find("introduced change"), std::string::npos) << message;
}

TEST_F(UpdateSyncInfo, ChangeMessagePrintsThePreviousReportsTime) {
    Feed(0, kStart);
    for (std::uint32_t i = 0; i < 19; ++i)
        stream_->UpdateSyncInfo(Report(450'000 * i, kNtpStart + 5 * i));
    stream_->UpdateSyncInfo(Report(8'550'000, kNtpStart + 97));  // 2 s later than predicted
    const Lines messages = StreamDeferredButTraces();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[2],
              "S7 New RTCP has introduced change !\n"
              "S7 RTCP report #20 ;  remote reports frame 8550000 captured at: 2023-11-14 22:14:50.000. "
              "This moves subsequent estimates 2000[ms] to the future");
    EXPECT_EQ(messages[3],
              "S7 RTCP report #20 ;  remote reports frame 8550000 captured at: 2023-11-14 22:14:57.000. "
              "This moves subsequent estimates 2000[ms] to the future");
}

TEST_F(UpdateSyncInfo, BeforeTheFirstPacketReportsAreNotCompared) {
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateSyncInfo(Report(0, kNtpStart + 3'600));
    for (std::uint32_t i = 3; i <= 20; ++i)
        stream_->UpdateSyncInfo(Report(i, kNtpStart + i));
    ASSERT_TRUE(streamLog_.WaitForDeferred(2));
    const Lines messages = streamLog_.Deferred();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[1],
              "S7 RTCP report #20 ;  remote reports frame 20 captured at: 2023-11-14 22:13:40.000. "
              "This moves subsequent estimates 0[ms] to the future");
}

TEST_F(UpdateSyncInfo, ComparesAtTheFirstPacketsRate) {
    Feed(0, kStart, 45'000);
    Feed(0, kStart, 90'000);
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateSyncInfo(Report(45'000, kNtpStart + 1));
    for (const std::string& message : StreamDeferredButTraces())
        EXPECT_EQ(message.find("introduced change"), std::string::npos) << message;
}

TEST_F(UpdateSyncInfo, AFirstPacketWithoutARateLeavesNothingToCompare) {
    Feed(0, kStart, 0);
    Feed(0, kStart, 90'000);  // comes too late to tell the rate
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateSyncInfo(Report(0, kNtpStart + 3'600));
    const Lines messages = StreamDeferredButTraces();
    EXPECT_EQ(messages.size(), 3U) << "the first packet, the second at the same place, the first report";
    for (const std::string& message : messages)
        EXPECT_EQ(message.find("introduced change"), std::string::npos) << message;
}

TEST_F(UpdateSyncInfo, NoReportIsIgnored) {
    stream_->UpdateSyncInfo(nullptr);
    EXPECT_EQ(stream_->GetTOC_Cam(0, 90'000, kNotYetSet), kNotYetSet);
    stream_->UpdateSyncInfo(Report(0));
    ASSERT_TRUE(streamLog_.WaitForDeferred(1));
    EXPECT_EQ(streamLog_.Deferred()[0].substr(0, 18), "S7 RTCP report #1 ");
}

TEST_F(UpdateSyncInfoAboveInfo, MapsAllTheSameAndWritesNothing) {
    const auto report = Report(0);
    stream_->UpdateSyncInfo(report);
    stream_->UpdateTiming(Packet(90'000, kStart + seconds(2)), MediaPacket::kFrameI);
    EXPECT_EQ(report->syncTime, kStart);
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), kStart + seconds(1));
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart);
    stream_.reset();
    EXPECT_TRUE(streamLog_.Events().empty());
    EXPECT_TRUE(cameraLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
