#include "timing/StreamFixture.h"

#include "support/TimeZone.h"

namespace camclock::test {
namespace {

/// The stream knows a report at RTP time 0 and `kStart` and maps times to the host's clock.
class FollowProcess : public StreamFixture {
protected:
    FollowProcess() { stream_->DoTimeFiltering(true); }

    void Synchronise() { stream_->UpdateSyncInfo(Report(0)); }

    /// A packet captured `captured` after `kStart`, as the camera sees it, and received then plus `latency`.
    void Receive(milliseconds captured, Ticks latency) {
        Feed(static_cast<std::uint32_t>(captured.count() * 90), kStart + captured + latency);
    }

    void ReceiveBad(int count, milliseconds from) {
        for (int i = 0; i < count; ++i)
            Receive(from + milliseconds(40 * i), milliseconds(-1));
    }

    MediaPacket::TimeEstimateTrustIndex Trust() { return stream_->GetCurrentEstimationQuality(); }
    TimePoint TocHost() { return stream_->GetCurrentTOC_Host(); }

    /// The deferred messages about bad estimates.
    Lines BadMessages() {
        Lines messages;
        for (const std::string& message : StreamDeferredButTraces()) {
            if (message.compare(0, 6, "S7 Bad") == 0)
                messages.push_back(message);
        }
        return messages;
    }
};

constexpr const char* kDegrading =
    "S7 Bad estimates after sync more than 10 in a row ... Degrading trust for this host";

TEST_F(FollowProcess, FilteringOffIsBadAndTakesTheCamerasTime) {
    stream_->DoTimeFiltering(false);
    camera_.SetD(milliseconds(-500));
    Receive(milliseconds(0), milliseconds(10));
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    EXPECT_EQ(TocHost(), kStart + milliseconds(10));  // no report yet: the time of reception
    Synchronise();
    Receive(milliseconds(40), milliseconds(10));
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    EXPECT_EQ(TocHost(), kStart + milliseconds(40));
    Receive(milliseconds(20), milliseconds(-1));  // neither the rule nor the clamp is applied
    EXPECT_EQ(TocHost(), kStart + milliseconds(20));
    EXPECT_EQ(BadMessages(), Lines{});
}

TEST_F(FollowProcess, EstimateBeforeReceptionIsGood) {
    Synchronise();
    camera_.SetD(milliseconds(250));
    camera_.SetSyncShift(milliseconds(-50));
    Receive(milliseconds(1'000), milliseconds(201));
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
    EXPECT_EQ(TocHost(), kStart + milliseconds(1'200));
}

TEST_F(FollowProcess, EstimateEqualToReceptionIsGood) {
    Synchronise();
    Receive(milliseconds(1'000), Ticks(0));
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
    EXPECT_EQ(TocHost(), kStart + milliseconds(1'000));
}

TEST_F(FollowProcess, EstimateATickAfterReceptionIsBad) {
    Synchronise();
    Receive(milliseconds(1'000), Ticks(-1));
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    EXPECT_EQ(TocHost(), kStart + milliseconds(1'000) - Ticks(1));
    EXPECT_EQ(BadMessages(), Lines{"S7 Bad estimate; TOC_host: 0 [ms] After TOR_host, pkt: 1\n"
                                   "\tSetting TOC_host = TOR_host !"});
}

TEST_F(FollowProcess, AGoodEstimateRestoresTheTrust) {
    Synchronise();
    Receive(milliseconds(0), milliseconds(-1));
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    Receive(milliseconds(40), milliseconds(0));
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
}

TEST_F(FollowProcess, ABadEstimateIsTracedAsItWasThenTold) {
    const TimeZone utc("UTC0");
    Synchronise();
    camera_.SetD(milliseconds(1'234));
    Feed(90'000, kStart + milliseconds(1'500));
    const Lines messages = StreamDeferred();
    ASSERT_EQ(messages.size(), 5U);
    EXPECT_EQ(messages[0].substr(0, 18), "S7 RTCP report #1 ");
    EXPECT_EQ(messages[1], "S7 \n"
                           "\tPacket #1\n"
                           "\tRTP_ts: 90000\n"
                           "\tRTP_freq: 90000\n"
                           "\tRTCP_sync: false\n"
                           "\tLive_pts: 00:00:00.000000\n"
                           "\tTOC_cam: 2023-11-14 22:13:21.000\n"
                           "\tTOC_host: 2023-11-14 22:13:22.234\n"
                           "\tTOR_host: 2023-11-14 22:13:21.500\n"
                           "\tD: 1234[ms]\n"
                           "\tD_uncert: 0[us]\tIsKeyframe: false\n"
                           "\tCurrent estimation quality: Bad\n"
                           "\tBad estimate count: 0\n");
    EXPECT_EQ(messages[2], "S7 Bad estimate; TOC_host: 734 [ms] After TOR_host, pkt: 1\n"
                           "\tSetting TOC_host = TOR_host !");
    EXPECT_EQ(messages[3], "S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.000, Pts0: 0");
    EXPECT_EQ(messages[4], "S7 \n"
                           "\tPacket #1\n"
                           "\tRTP_ts: 90000\n"
                           "\tRTP_freq: 90000\n"
                           "\tRTCP_sync: false\n"
                           "\tLive_pts: 00:00:00.000000\n"
                           "\tTOC_cam: 2023-11-14 22:13:21.000\n"
                           "\tTOC_host: 2023-11-14 22:13:21.500\n"
                           "\tTOR_host: 2023-11-14 22:13:21.500\n"
                           "\tD: 1234[ms]\n"
                           "\tD_uncert: 0[us]\tIsKeyframe: false\n"
                           "\tCurrent estimation quality: Bad\n"
                           "\tBad estimate count: 1\n");
}

TEST_F(FollowProcess, EveryBadEstimateOfTwoHundredIsTold) {
    Synchronise();
    int packets = 0;
    for (int bad = 0; bad < 401; ++bad) {  // a good one after every bad one: it is the bad ones that count
        Receive(milliseconds(40 * packets++), milliseconds(-7));
        Receive(milliseconds(40 * packets++), milliseconds(7));
    }
    EXPECT_EQ(
        BadMessages(),
        (Lines{
            "S7 Bad estimate; TOC_host: 7 [ms] After TOR_host, pkt: 1\n\tSetting TOC_host = TOR_host !",
            "S7 Bad estimate; TOC_host: 7 [ms] After TOR_host, pkt: 401\n\tSetting TOC_host = TOR_host !",
            "S7 Bad estimate; TOC_host: 7 [ms] After TOR_host, pkt: 801\n\tSetting TOC_host = TOR_host !"}));
}

TEST_F(FollowProcess, TheEleventhBadEstimateInARowDegradesTheTrust) {
    Synchronise();
    ReceiveBad(10, milliseconds(0));
    EXPECT_EQ(BadMessages().size(), 1U);  // the first bad one is told, that is all
    ReceiveBad(1, milliseconds(400));
    ASSERT_EQ(BadMessages().size(), 2U);
    EXPECT_EQ(BadMessages()[1], kDegrading);
    ReceiveBad(50, milliseconds(440));
    EXPECT_EQ(BadMessages().size(), 2U);

    Receive(milliseconds(2'440), milliseconds(1));  // a good one ends the run
    ReceiveBad(10, milliseconds(2'480));
    EXPECT_EQ(BadMessages().size(), 2U);
    ReceiveBad(2, milliseconds(2'880));
    ASSERT_EQ(BadMessages().size(), 3U);
    EXPECT_EQ(BadMessages()[2], kDegrading);
}

TEST_F(FollowProcess, The201stBadEstimateInARowIsTracedAndToldAgain) {
    Synchronise();
    ReceiveBad(201, milliseconds(0));
    const Lines messages = StreamDeferred();
    ASSERT_GE(messages.size(), 2U);
    Lines bad = BadMessages();
    ASSERT_EQ(bad.size(), 3U);
    EXPECT_EQ(bad[2],
              "S7 Bad estimate; TOC_host: 1 [ms] After TOR_host, pkt: 201\n\tSetting TOC_host = TOR_host !");
    for (std::size_t i = 0; i < messages.size(); ++i) {
        if (messages[i] == bad[2]) {
            EXPECT_TRUE(IsTrace(messages[i - 1]));
            EXPECT_NE(messages[i - 1].find("\tBad estimate count: 200\n"), std::string::npos);
        }
    }
}

TEST_F(FollowProcess, WithoutAReportALateEstimateIsTheReceptionAndKeepsTheTrust) {
    camera_.SetD(milliseconds(1));
    for (int i = 0; i < 30; ++i) {
        Receive(milliseconds(40 * i), milliseconds(5));
        EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
        EXPECT_EQ(TocHost(), kStart + milliseconds(40 * i + 5));
    }
    EXPECT_EQ(BadMessages(), Lines{});
    Synchronise();
    ReceiveBad(1, milliseconds(2'000));
    EXPECT_EQ(BadMessages(), Lines{"S7 Bad estimate; TOC_host: 2 [ms] After TOR_host, pkt: 31\n"
                                   "\tSetting TOC_host = TOR_host !"});  // the first to be counted
}

TEST_F(FollowProcess, WithoutAReportABadTrustStaysBad) {
    stream_->DoTimeFiltering(false);
    Receive(milliseconds(0), milliseconds(5));
    stream_->DoTimeFiltering(true);
    camera_.SetD(milliseconds(1));
    Receive(milliseconds(40), milliseconds(5));
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    camera_.SetD(milliseconds(0));
    Receive(milliseconds(80), milliseconds(5));
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
}

TEST_F(FollowProcess, WithoutAReportTocHostMayGoBackwards) {
    camera_.SetD(milliseconds(-10));
    Receive(milliseconds(1'000), milliseconds(0));
    EXPECT_EQ(TocHost(), kStart + milliseconds(990));
    Receive(milliseconds(500), milliseconds(0));
    EXPECT_EQ(TocHost(), kStart + milliseconds(490));
    Synchronise();
    Receive(milliseconds(100), milliseconds(0));  // the first packet with a report is never raised
    EXPECT_EQ(TocHost(), kStart + milliseconds(90));
}

TEST_F(FollowProcess, EarlierCaptureIsRaisedToTheLastAndLoggedWithoutStreamId) {
    Synchronise();
    Receive(milliseconds(80), milliseconds(10));
    Receive(milliseconds(40), milliseconds(60));
    EXPECT_EQ(TocHost(), kStart + milliseconds(80));
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
    EXPECT_EQ(StreamDirect(),
              Lines{"TOC BACK TO THE FUTURE: 2023-11-14 22:13:20.040 -- last: 2023-11-14 22:13:20.080"});
    Receive(milliseconds(80), milliseconds(60));  // equal is not earlier
    EXPECT_EQ(TocHost(), kStart + milliseconds(80));
    Receive(milliseconds(79), milliseconds(60));
    Receive(milliseconds(120), milliseconds(60));
    EXPECT_EQ(TocHost(), kStart + milliseconds(120));
    EXPECT_EQ(StreamDirect(),
              (Lines{"TOC BACK TO THE FUTURE: 2023-11-14 22:13:20.040 -- last: 2023-11-14 22:13:20.080",
                     "TOC BACK TO THE FUTURE: 2023-11-14 22:13:20.079 -- last: 2023-11-14 22:13:20.080"}));
}

TEST_F(FollowProcess, ABadEstimateIsRaisedToTheLastToo) {
    Synchronise();
    Receive(milliseconds(80), milliseconds(10));
    Receive(milliseconds(120), milliseconds(-70));  // received at 50 ms, which is before the last capture
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    EXPECT_EQ(TocHost(), kStart + milliseconds(80));
    EXPECT_EQ(StreamDirect(),
              Lines{"TOC BACK TO THE FUTURE: 2023-11-14 22:13:20.050 -- last: 2023-11-14 22:13:20.080"});
}

TEST_F(FollowProcess, FilteringOffLeavesTheLastCaptureAlone) {
    Synchronise();
    Receive(milliseconds(80), milliseconds(10));
    stream_->DoTimeFiltering(false);
    Receive(milliseconds(400), milliseconds(10));
    stream_->DoTimeFiltering(true);
    Receive(milliseconds(120), milliseconds(10));
    EXPECT_EQ(TocHost(), kStart + milliseconds(120));
    EXPECT_EQ(StreamDirect(), Lines{});
}

TEST_F(FollowProcess, ReceptionsAtTheEndsOfTheRangeAreDefined) {
    Synchronise();
    Feed(0, kNotYetSet);  // every estimate lies after it; the excess wraps around
    EXPECT_EQ(Trust(), MediaPacket::kTrustBad);
    EXPECT_EQ(TocHost(), kNotYetSet);
    Feed(0, (TimePoint::max)());
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
    EXPECT_EQ(TocHost(), kStart);
    EXPECT_EQ(BadMessages(), Lines{"S7 Bad estimate; TOC_host: -920637203685477 [ms] After TOR_host, pkt: 1\n"
                                   "\tSetting TOC_host = TOR_host !"});
}

TEST_F(FollowProcess, ExtremeDifferencesWrapAround) {
    Synchronise();
    camera_.SetD((milliseconds::max)());
    camera_.SetSyncShift((milliseconds::max)());
    Receive(milliseconds(1'000), milliseconds(0));  // 2 * (2^63 - 1) ms are two milliseconds back
    EXPECT_EQ(Trust(), MediaPacket::kTrustGood);
    EXPECT_EQ(TocHost(), kStart + milliseconds(998));
}

using FollowProcessAboveInfo = SilentStreamFixture;

TEST_F(FollowProcessAboveInfo, RaisesAllTheSameAndWritesNothing) {
    stream_->DoTimeFiltering(true);
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateTiming(Packet(9'000, kStart + seconds(1)), MediaPacket::kFrameP);
    stream_->UpdateTiming(Packet(0, kStart + seconds(1)), MediaPacket::kFrameP);
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), kStart + milliseconds(100));
    stream_->UpdateTiming(Packet(900'000, kStart + seconds(1)), MediaPacket::kFrameP);
    EXPECT_EQ(stream_->GetCurrentEstimationQuality(), MediaPacket::kTrustBad);
    stream_.reset();
    EXPECT_TRUE(streamLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
