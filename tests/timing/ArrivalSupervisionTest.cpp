#include "timing/StreamFixture.h"

namespace camclock::test {
namespace {

class ArrivalSupervision : public StreamFixture {
protected:
    ArrivalSupervision() { stream_->EnableTimeOutCheck(true); }

    void ReceivePacket() { Feed(0, counter_.Now()); }

    /// The messages about time-outs, without what the packets themselves say.
    Lines TimeOuts() const {
        Lines messages;
        for (const std::string& message : StreamDirect()) {
            if (message.find("timeout") != std::string::npos)
                messages.push_back(message);
        }
        return messages;
    }
};

TEST_F(ArrivalSupervision, OffIsAlwaysOk) {
    stream_->EnableTimeOutCheck(false);
    camera_.RequireRTCP(true);
    camera_.SetPacketTimeOut(milliseconds(-1));
    camera_.SetRtcpTimeOut(milliseconds(-1));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(std::chrono::hours(100));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{});
}

TEST_F(ArrivalSupervision, IsOffAtFirst) {
    const auto other = camera_.CreateNewTimeFilter();
    camera_.SetPacketTimeOut(milliseconds(-1));
    EXPECT_TRUE(other->PacketArrivalIsOk());
}

TEST_F(ArrivalSupervision, AnOffCheckStartsNoClock) {
    stream_->EnableTimeOutCheck(false);
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(seconds(11));
    stream_->EnableTimeOutCheck(true);
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
}

TEST_F(ArrivalSupervision, TheFirstCheckStartsBothClocks) {
    camera_.RequireRTCP(true);
    counter_.Advance(std::chrono::hours(1));  // the age of the instance does not matter
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(seconds(10));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(milliseconds(1));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 Data packet timeout detected, 10001 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, NegativeTimeOutsAreOverAtOnce) {
    camera_.SetPacketTimeOut(milliseconds(-1));
    camera_.SetRtcpTimeOut(milliseconds(-1));
    camera_.RequireRTCP(true);
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), (Lines{"S7 Data packet timeout detected, 0 [ms] since last packet",
                                 "S7 RTCP packet timeout detected, 0 [ms] since last packet"}));
}

TEST_F(ArrivalSupervision, AReportsAgeCountsFromItsHandOverNotFromAPacket) {
    camera_.RequireRTCP(true);
    camera_.SetPacketTimeOut(std::chrono::hours(1));
    Feed(0, kStart - seconds(100));
    counter_.Advance(seconds(5));
    stream_->UpdateSyncInfo(Report(0));
    Feed(3'600, kStart - seconds(99));
    counter_.Advance(seconds(30));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(milliseconds(1));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 RTCP packet timeout detected, 30001 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, AnAgeEqualToTheTimeOutIsOk) {
    camera_.SetPacketTimeOut(milliseconds(500));
    ReceivePacket();
    counter_.Advance(milliseconds(500));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{});
    counter_.Advance(milliseconds(1));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 Data packet timeout detected, 501 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, ATickPastTheTimeOutIsLate) {
    camera_.SetPacketTimeOut(milliseconds(500));
    Feed(0, counter_.Now() - Ticks(1));  // times of reception may be finer than the host's clock
    counter_.Advance(milliseconds(500));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 Data packet timeout detected, 500 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, EveryCheckLogsWhileTheTimeOutLastsAndAPacketEndsIt) {
    ReceivePacket();
    counter_.Advance(milliseconds(10'001));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    counter_.Advance(seconds(1));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    ReceivePacket();
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), (Lines{"S7 Data packet timeout detected, 10001 [ms] since last packet",
                                 "S7 Data packet timeout detected, 11001 [ms] since last packet"}));
}

TEST_F(ArrivalSupervision, ReportsAreSupervisedOnlyWhereRequired) {
    stream_->UpdateSyncInfo(Report(0));
    counter_.Advance(milliseconds(30'000));
    ReceivePacket();
    camera_.RequireRTCP(true);
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(milliseconds(1));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    camera_.RequireRTCP(false);
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    camera_.RequireRTCP(true);
    stream_->UpdateSyncInfo(Report(0, kNtpStart + 30));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 RTCP packet timeout detected, 30001 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, BothTimeOutsAreTold) {
    camera_.RequireRTCP(true);
    stream_->UpdateSyncInfo(Report(0));
    ReceivePacket();
    counter_.Advance(milliseconds(45'678));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), (Lines{"S7 Data packet timeout detected, 45678 [ms] since last packet",
                                 "S7 RTCP packet timeout detected, 45678 [ms] since last packet"}));
}

TEST_F(ArrivalSupervision, NoReportYetIsNotALateReport) {
    camera_.RequireRTCP(true);
    ReceivePacket();  // before the first check, which therefore starts no clock
    counter_.Advance(std::chrono::hours(1'000));
    ReceivePacket();
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    stream_->UpdateSyncInfo(Report(0));
    counter_.Advance(milliseconds(30'001));
    ReceivePacket();
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_EQ(TimeOuts(), Lines{"S7 RTCP packet timeout detected, 30001 [ms] since last packet"});
}

TEST_F(ArrivalSupervision, AReportBeforeTheFirstCheckIsReplacedByTheCheck) {
    camera_.RequireRTCP(true);
    stream_->UpdateSyncInfo(Report(0));
    counter_.Advance(seconds(60));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());  // no packet yet: both clocks start now
}

TEST_F(ArrivalSupervision, AReceptionInTheFutureIsOk) {
    Feed(0, counter_.Now() + std::chrono::hours(1));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    Feed(0, (TimePoint::max)());
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
}

TEST_F(ArrivalSupervision, TimeOutsBeyondTheReachOfTicksAreNeverOver) {
    camera_.RequireRTCP(true);
    camera_.SetPacketTimeOut((milliseconds::max)());
    camera_.SetRtcpTimeOut((milliseconds::max)());
    stream_->UpdateSyncInfo(Report(0));
    Feed(0, TimePoint{});
    counter_.Advance(std::chrono::hours(1'000'000));
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    camera_.SetPacketTimeOut((milliseconds::min)());
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
}

TEST_F(ArrivalSupervision, StablePtsNeedSyncOnlyWhereRtcpIsRequired) {
    EXPECT_TRUE(stream_->StablePtsIsOk());
    camera_.RequireRTCP(true);
    EXPECT_FALSE(stream_->StablePtsIsOk());
    stream_->UpdateSyncInfo(Report(0));
    EXPECT_TRUE(stream_->StablePtsIsOk());
    camera_.RequireRTCP(false);
    EXPECT_TRUE(stream_->StablePtsIsOk());
}

using ArrivalSupervisionAboveInfo = SilentStreamFixture;

TEST_F(ArrivalSupervisionAboveInfo, FailsAllTheSameAndWritesNothing) {
    stream_->EnableTimeOutCheck(true);
    camera_.RequireRTCP(true);
    EXPECT_TRUE(stream_->PacketArrivalIsOk());
    counter_.Advance(milliseconds(30'001));
    EXPECT_FALSE(stream_->PacketArrivalIsOk());
    EXPECT_TRUE(streamLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
