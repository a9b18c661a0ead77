#include "timing/StreamFixture.h"

#include "support/LogFences.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <stdexcept>

namespace camclock::test {
namespace {

class StablePts : public StreamFixture {
protected:
    std::int64_t PtsAfter(std::uint32_t RTP_ts, TimePoint TOR_host, std::uint32_t RTPFreq = 90'000) {
        Feed(RTP_ts, TOR_host, RTPFreq);
        return stream_->GetCurrentStablePTS();
    }

    /// Without a report the time of reception counts.
    std::int64_t PtsAfter(Ticks sinceStart, std::uint32_t RTPFreq = 90'000) {
        return PtsAfter(0, kStart + sinceStart, RTPFreq);
    }

    Lines Errors() {
        Lines messages;
        for (const std::string& message : StreamDeferredButTraces()) {
            if (message.find("ERROR") != std::string::npos)
                messages.push_back(message);
        }
        return messages;
    }
};

TEST_F(StablePts, TheFirstPacketIsZeroAndSetsTheOrigin) {
    EXPECT_EQ(PtsAfter(milliseconds(1'042)), 0);
    EXPECT_EQ(camera_.GetStablePtsT0(false), kStart + milliseconds(1'042));
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart + milliseconds(1'042));
    EXPECT_FALSE(camera_.StablePtsT0Locked());
    EXPECT_EQ(StreamDeferredButTraces(),
              Lines{"S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:21.042, Pts0: 0"});
    ASSERT_TRUE(cameraLog_.WaitForDeferred(1));
    EXPECT_EQ(cameraLog_.Deferred(), Lines{"New stablePts T0 set: 2023-11-14 22:13:21.042 RTCP sync: false"});
}

TEST_F(StablePts, TheFirstPacketWithAReportFindsTheOriginLocked) {
    stream_->UpdateSyncInfo(Report(0));  // no packet yet: the report's own time is the origin
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart);
    EXPECT_EQ(camera_.GetStablePtsT0(false), TimePoint{});
    EXPECT_TRUE(camera_.StablePtsT0Locked());
    EXPECT_EQ(PtsAfter(90'000, kStart + seconds(9)), 0);
    EXPECT_EQ(PtsAfter(93'600, kStart + seconds(9)), 93'600);
    EXPECT_EQ(StreamDeferredButTraces(),
              (Lines{"S7 RTCP report #1 ;  remote reports frame 0 captured at: 2023-11-14 22:13:20.000. "
                     "This moves subsequent estimates 0[ms] to the future",
                     "S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.000, Pts0: 0"}));
    EXPECT_EQ(cameraLog_.Direct().back(),
              "Gate 3: Not able to update stable pts t0, it has been set for this session");
}

TEST_F(StablePts, ALockedOriginStays) {
    camera_.SetStablePtst0(kStart - seconds(10), true);
    EXPECT_EQ(PtsAfter(90'000, kStart), 0);
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart - seconds(10));
    EXPECT_EQ(StreamDeferredButTraces(),
              Lines{"S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:10.000, Pts0: 0"});
    stream_->UpdateSyncInfo(Report(0));
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart - seconds(10));
    EXPECT_EQ(PtsAfter(3'600, kStart), 903'600);
}

TEST_F(StablePts, CountsTicksOfTheRtpClockSinceTheOrigin) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(milliseconds(40)), 3'600);
    EXPECT_EQ(PtsAfter(microseconds(73'366)), 6'602);             // 6,602.94 truncated
    EXPECT_EQ(PtsAfter(microseconds(83'366) + Ticks(9)), 7'502);  // ticks below a microsecond are dropped
    EXPECT_EQ(PtsAfter(seconds(1), 48'000), 48'000);              // the packet's own rate
    EXPECT_EQ(Errors(), Lines{});
}

TEST_F(StablePts, PacketsOfOneFrameAreRaisedByATick) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(milliseconds(40)), 3'600);
    EXPECT_EQ(PtsAfter(milliseconds(40)), 3'601);
    EXPECT_EQ(PtsAfter(milliseconds(40)), 3'602);
    EXPECT_EQ(PtsAfter(milliseconds(80)), 7'200);
    EXPECT_EQ(Errors(), (Lines{"S7 ERROR !! Stable pts 0 [ms] ahead of last frame, Packet #3",
                               "S7 ERROR !! Stable pts 0 [ms] ahead of last frame, Packet #4"}));
}

TEST_F(StablePts, ASecondPacketAtTheOriginIsRaised) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(milliseconds(0)), 1);
    EXPECT_EQ(Errors(), Lines{"S7 ERROR !! Stable pts 0 [ms] ahead of last frame, Packet #2"});
}

TEST_F(StablePts, AStepBackIsRaised) {
    PtsAfter(milliseconds(0));
    PtsAfter(milliseconds(200));
    EXPECT_EQ(PtsAfter(milliseconds(100)), 18'001);
    EXPECT_EQ(PtsAfter(milliseconds(-100)), 18'002);
    EXPECT_EQ(Errors(), (Lines{"S7 ERROR !! Stable pts -100 [ms] ahead of last frame, Packet #3",
                               "S7 ERROR !! Stable pts -300 [ms] ahead of last frame, Packet #4"}));
}

TEST_F(StablePts, AJumpOf120SecondsIsAccepted) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(seconds(120)), 10'800'000);
    EXPECT_EQ(Errors(), Lines{});
}

TEST_F(StablePts, AJumpOfMoreThan120SecondsIsAnError) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(milliseconds(120'001)), 1);
    EXPECT_EQ(PtsAfter(std::chrono::hours(1)), 2);
    EXPECT_EQ(PtsAfter(milliseconds(40)), 3'600);  // back in reach
    EXPECT_EQ(Errors(), (Lines{"S7 ERROR !! Stable pts 120001 [ms] ahead of last frame, Packet #2",
                               "S7 ERROR !! Stable pts 3599999 [ms] ahead of last frame, Packet #3"}));
}

TEST_F(StablePts, AJumpOfAMicrosecondMoreThan120SecondsIsAnError) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(seconds(120) + microseconds(1), 1'000'000), 1);
    EXPECT_EQ(PtsAfter(seconds(120) + microseconds(1), 1'000'000), 120'000'001) << "120 s behind that one";
    EXPECT_EQ(Errors(), Lines{"S7 ERROR !! Stable pts 120000 [ms] ahead of last frame, Packet #2"});
}

TEST_F(StablePts, AStepOfAMicrosecondIsAcceptedAndLessIsNot) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(microseconds(22'500), 4'000'000), 90'000);
    EXPECT_EQ(PtsAfter(microseconds(22'501), 4'000'000), 90'004);  // 1 us
    // 90,005.1 ticks are ahead of 90,004, but by 0.28 us only.
    EXPECT_EQ(PtsAfter(microseconds(22'501), 4'000'050), 90'005);
    EXPECT_EQ(Errors(), Lines{"S7 ERROR !! Stable pts 0 [ms] ahead of last frame, Packet #4"});
}

TEST_F(StablePts, ARateOfZeroIsAnErrorOfNoMeaning) {
    PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(milliseconds(40), 0), 1);
    EXPECT_EQ(PtsAfter(milliseconds(80), 0), 2);
    EXPECT_EQ(Errors(),
              (Lines{"S7 ERROR !! Stable pts -9223372036854775 [ms] ahead of last frame, Packet #2",
                     "S7 ERROR !! Stable pts -9223372036854775 [ms] ahead of last frame, Packet #3"}));
}

TEST_F(StablePts, ReceptionsAtTheEndsOfTheRangeAreDefined) {
    PtsAfter(0, (TimePoint::min)());
    EXPECT_EQ(PtsAfter(0, (TimePoint::max)()), 1);  // the difference wraps around to -1 tick, no microsecond
    EXPECT_EQ(PtsAfter(0, TimePoint{}, 0xFFFF'FFFF), 2);
    EXPECT_EQ(camera_.GetStablePtsT0(false), kNotYetSet);
}

TEST_F(StablePts, TheThousandthErrorInARowEndsTheSessionAndEveryFurtherOne) {
    int shutdowns = 0;
    camera_.AssignShutdownHandler([&shutdowns] { ++shutdowns; });
    PtsAfter(milliseconds(0));
    for (int i = 1; i <= 999; ++i)
        ASSERT_EQ(PtsAfter(milliseconds(0)), i);
    EXPECT_EQ(shutdowns, 0);
    EXPECT_EQ(PtsAfter(milliseconds(0)), 1'000);
    EXPECT_EQ(shutdowns, 1);
    EXPECT_EQ(PtsAfter(milliseconds(0)), 1'001);
    EXPECT_EQ(shutdowns, 2);
    EXPECT_EQ(Errors().size(), 1'001U);

    Lines ends;
    for (const std::string& message : StreamDirect()) {
        if (message.find("messed") != std::string::npos)
            ends.push_back(message);
    }
    const std::string end = "S7 The stable pts is messed up, this session needs to be terminated";
    EXPECT_EQ(ends, (Lines{end, end}));
    EXPECT_EQ(cameraLog_.Direct().back(), "Gate 3: Calling shutdown");
}

TEST_F(StablePts, AHandlerThatThrowsLosesNoPacket) {
    const TemporaryDirectory directory;
    camera_.EnableTimeLogging(directory.Name());
    stream_->UpdateSyncInfo(Report(0));
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
    std::int64_t seenByHandler = 0;
    camera_.AssignShutdownHandler([&] {
        seenByHandler = stream_->GetCurrentStablePTS();
        throw std::runtime_error("the application's");
    });
    for (int i = 0; i <= 999; ++i)
        ASSERT_EQ(PtsAfter(0, kStart), i);
    EXPECT_THROW(PtsAfter(0, kStart), std::runtime_error);
    EXPECT_EQ(stream_->GetCurrentStablePTS(), 1'000) << "raised like any other";
    EXPECT_EQ(seenByHandler, 0) << "the value that could not be kept";
    // The 1,200th packet, whose trace is due, throws as well.
    for (int i = 1'001; i <= 1'199; ++i) {
        EXPECT_THROW(PtsAfter(0, kStart), std::runtime_error);
        ASSERT_EQ(stream_->GetCurrentStablePTS(), i);
    }
    EXPECT_EQ(PtsAfter(90'000, kStart + seconds(1)), 90'000);

    std::size_t traces = 0;
    for (const std::string& message : StreamDeferred())
        traces += IsTrace(message) ? 1U : 0U;
    EXPECT_EQ(traces, 7U) << "packets 1, 200, ... 1,200";
    ASSERT_TRUE(WaitUntilWritten(camera_.TimeLog()));
    camera_.EnableTimeLogging(directory.Name());  // closes the first file
    const std::string rows = directory.Read("timinglog0.txt");
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 2 + 1'201);
}

TEST_F(StablePts, AnAcceptedValueEndsTheRowOfErrors) {
    int shutdowns = 0;
    camera_.AssignShutdownHandler([&shutdowns] { ++shutdowns; });
    PtsAfter(milliseconds(0));
    for (int i = 0; i < 999; ++i)
        PtsAfter(milliseconds(0));
    EXPECT_EQ(PtsAfter(seconds(1)), 90'000);
    for (int i = 0; i < 999; ++i)
        PtsAfter(seconds(1));
    EXPECT_EQ(shutdowns, 0);
    PtsAfter(seconds(1));
    EXPECT_EQ(shutdowns, 1);
}

TEST_F(StablePts, ProgressIsToldEvery200thPacketAndExplainedInTheNext) {
    stream_->UpdateSyncInfo(Report(0));
    for (std::uint32_t i = 0; i <= 400; ++i)
        Feed(3'600 * i, kStart + milliseconds(40 * i + 5));
    EXPECT_EQ(StreamDeferredButTraces(),
              (Lines{"S7 RTCP report #1 ;  remote reports frame 0 captured at: 2023-11-14 22:13:20.000. "
                     "This moves subsequent estimates 0[ms] to the future",
                     "S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.000, Pts0: 0",
                     "S7 Packet #200 , Stable pts progress: elapsed 7960[ms]  Pts: 716400",
                     "S7 StablePTsInfo: Packet #201\n"
                     "\tT0: 2023-11-14 22:13:20.000\n"
                     "\tTOC: 2023-11-14 22:13:28.000\n"
                     "\tElapsed since begin: 8000000[ms]\n"
                     "\tstablePts: 720000\n",
                     "S7 Packet #400 , Stable pts progress: elapsed 15960[ms]  Pts: 1436400",
                     "S7 StablePTsInfo: Packet #401\n"
                     "\tT0: 2023-11-14 22:13:20.000\n"
                     "\tTOC: 2023-11-14 22:13:36.000\n"
                     "\tElapsed since begin: 16000000[ms]\n"
                     "\tstablePts: 1440000\n"}));
}

TEST_F(StablePts, InfoPrintsMicrosecondsUnderAMillisecondLabel) {
    for (std::uint32_t i = 0; i <= 200; ++i)
        Feed(0, kStart + microseconds(1'001 * i));
    const Lines messages = StreamDeferredButTraces();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1], "S7 Packet #200 , Stable pts progress: elapsed 199[ms]  Pts: 17927");
    EXPECT_EQ(messages[2], "S7 StablePTsInfo: Packet #201\n"
                           "\tT0: 2023-11-14 22:13:20.000\n"
                           "\tTOC: 2023-11-14 22:13:20.200\n"
                           "\tElapsed since begin: 200200[ms]\n"
                           "\tstablePts: 18018\n");
}

TEST_F(StablePts, AnErrorIsToldBeforeTheProgress) {
    for (int i = 0; i < 199; ++i)
        Feed(0, kStart + milliseconds(40 * i));
    Feed(0, kStart);
    const Lines messages = StreamDeferredButTraces();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1], "S7 ERROR !! Stable pts -7920 [ms] ahead of last frame, Packet #200");
    EXPECT_EQ(messages[2], "S7 Packet #200 , Stable pts progress: elapsed 0[ms]  Pts: 712801");
}

TEST_F(StablePts, TheFirstReportMovesTheOriginAlong) {
    PtsAfter(10'000, kStart);
    EXPECT_EQ(PtsAfter(13'600, kStart + milliseconds(40)), 3'600);
    // The camera is an hour and 5 ms behind: its frame at RTP time 13,600 was captured then.
    stream_->UpdateSyncInfo(Report(13'600 - 450, kNtpStart - 3'600));
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart - seconds(3'600) - milliseconds(35));
    EXPECT_EQ(camera_.GetStablePtsT0(false), kStart);
    EXPECT_TRUE(camera_.StablePtsT0Locked());
    EXPECT_EQ(PtsAfter(17'200, kStart + milliseconds(80)), 7'200);
    EXPECT_EQ(StreamDeferredButTraces(),
              (Lines{"S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.000, Pts0: 0",
                     "S7 RTCP report #1 ;  remote reports frame 13150 captured at: 2023-11-14 21:13:20.000. "
                     "This moves subsequent estimates 0[ms] to the future",
                     "S7 A new stablePts T0 found \n"
                     "\tprevious: 2023-11-14 22:13:20.000\n"
                     "\tnew: 2023-11-14 21:13:19.965\n"
                     "\tdifference:-3600035[ms]"}));
    ASSERT_TRUE(cameraLog_.WaitForDeferred(2));
    EXPECT_EQ(cameraLog_.Deferred(),
              (Lines{"New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: false",
                     "New stablePts T0 set: 2023-11-14 21:13:19.965 RTCP sync: true"}));
    EXPECT_EQ(Errors(), Lines{});
}

TEST_F(StablePts, AReportThatMovesNothingLeavesTheOriginOpen) {
    PtsAfter(0, kStart);
    stream_->UpdateSyncInfo(Report(0, kNtpStart, kNtpMillisecond - 1));  // 999 us
    EXPECT_FALSE(camera_.StablePtsT0Locked());
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart);
    EXPECT_EQ(StreamDeferredButTraces().size(), 2U);
}

TEST_F(StablePts, OnlyTheFirstReportMovesTheOrigin) {
    PtsAfter(0, kStart);
    stream_->UpdateSyncInfo(Report(0));
    stream_->UpdateSyncInfo(Report(0, kNtpStart + 3'600));
    EXPECT_FALSE(camera_.StablePtsT0Locked());
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart);
}

TEST_F(StablePts, AStreamWithoutAReportKeepsTheOriginOfItsKind) {
    const auto other = camera_.CreateNewTimeFilter();
    PtsAfter(0, kStart);
    other->UpdateTiming(Packet(0, kStart + milliseconds(10)), MediaPacket::kFrameP);
    EXPECT_EQ(camera_.GetStablePtsT0(false), kStart + milliseconds(10));
    stream_->UpdateSyncInfo(Report(0, kNtpStart - 50));  // locks an origin on the camera's clock
    EXPECT_EQ(camera_.GetStablePtsT0(true), kStart - seconds(50) + milliseconds(10));
    other->UpdateTiming(Packet(0, kStart + milliseconds(110)), MediaPacket::kFrameP);
    EXPECT_EQ(other->GetCurrentStablePTS(), 9'000);
    EXPECT_EQ(PtsAfter(90'000, kStart), 89'100);
}

using StablePtsAboveInfo = SilentStreamFixture;

TEST_F(StablePtsAboveInfo, EndTheSessionAllTheSameAndWriteNothing) {
    int shutdowns = 0;
    camera_.AssignShutdownHandler([&shutdowns] { ++shutdowns; });
    for (int i = 0; i <= 1'000; ++i)
        stream_->UpdateTiming(Packet(0, kStart), MediaPacket::kFrameP);
    EXPECT_EQ(stream_->GetCurrentStablePTS(), 1'000);
    EXPECT_EQ(shutdowns, 1);
    EXPECT_TRUE(streamLog_.Events().empty());
    EXPECT_TRUE(cameraLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
