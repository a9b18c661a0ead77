#include "apps/camclock/sources/StreamSession.h"

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kStart{Ticks(17'952'288'110'000'000)};  // 2026-11-21 02:40:11 UTC, host's clock
constexpr std::uint64_t kNtpSecondsAtStart = 1'795'228'811ULL + 2'208'988'800ULL;

/// A camera whose clock is one hour ahead; frame n is made 40 n ms after the start and has RTP time stamp
/// 3,600 n.
class StreamSessionTest : public testing::Test {
protected:
    explicit StreamSessionTest(const TimingSettings& settings = {})
        : session_(camera_, "cam ", H264(), settings, [this](const receiver::Frame& frame) {
            rows_.push_back({1, 90'000, frame});
        }) {}

    static receiver::SenderReport ReportAtStart(std::uint32_t SSRC = 7) {
        return {SSRC, (kNtpSecondsAtStart + 3'600) << 32, 0};
    }

    void AddFrame(std::uint32_t n, milliseconds latency, std::uint32_t SSRC = 7) {
        receiver::RtpPacket packet;
        packet.seqnum = seqnum_++;
        packet.RTP_ts = 3'600 * n;
        packet.SSRC = SSRC;
        packet.marker = true;
        packet.TOR_host = kStart + milliseconds(40) * n + latency;
        session_.OnPacket(packet);
    }

    static receiver::Format H264() {
        receiver::Format format;
        format.codec = receiver::Codec::kH264;
        return format;
    }

    std::vector<FrameRow> rows_;
    std::uint16_t seqnum_ = 0;
    TimeFilter camera_;
    StreamSession session_;
};

TEST_F(StreamSessionTest, WithoutReportTheTimeOfReceptionStandsIn) {
    AddFrame(0, milliseconds(25));
    ASSERT_EQ(rows_.size(), 1U);
    EXPECT_FALSE(rows_[0].Synced());
    EXPECT_EQ(rows_[0].frame.captured_cam, kStart + milliseconds(25));
    EXPECT_EQ(session_.Snapshot().reports, 0U);
}

TEST_F(StreamSessionTest, ReportsGiveTheCamerasTimeAndFramesTheDifference) {
    session_.OnSenderReport(ReportAtStart(), kStart);
    for (std::uint32_t n = 0; n < 10; ++n)
        AddFrame(n, milliseconds(30));
    ASSERT_EQ(rows_.size(), 10U);
    const FrameRow& last = rows_.back();
    EXPECT_TRUE(last.Synced());
    EXPECT_EQ(last.frame.captured_cam, kStart + std::chrono::hours(1) + milliseconds(360));
    EXPECT_EQ(last.frame.D, milliseconds(-3'600'000));
    EXPECT_EQ(last.frame.captured_host, kStart + milliseconds(360));
    EXPECT_EQ(last.frame.trust, receiver::Trust::kGood);
    EXPECT_EQ(session_.Snapshot().reports, 1U);
    EXPECT_EQ(session_.Snapshot().lastReport_host, kStart);
    EXPECT_EQ(last.frame.pts, 9 * 3'600);
}

TEST_F(StreamSessionTest, TheMeanLatencyMayChangeWhileFramesCome) {
    session_.OnSenderReport(ReportAtStart(), kStart);
    AddFrame(0, milliseconds(60));
    session_.SetMeanLatency(milliseconds(60));
    AddFrame(1, milliseconds(60));
    EXPECT_EQ(rows_.back().frame.D, milliseconds(-3'600'000));
}

TEST_F(StreamSessionTest, ReportsOfAnotherSourceAreIgnored) {
    AddFrame(0, milliseconds(30));
    session_.OnSenderReport(ReportAtStart(8), kStart);
    AddFrame(1, milliseconds(30));
    EXPECT_FALSE(rows_.back().Synced());
}

TEST_F(StreamSessionTest, AnotherSourceStartsWithoutTheReportsOfTheLast) {
    session_.OnSenderReport(ReportAtStart(), kStart);
    AddFrame(0, milliseconds(30));
    EXPECT_TRUE(rows_.back().Synced());
    AddFrame(1, milliseconds(30), 8);
    ASSERT_EQ(rows_.size(), 2U);
    EXPECT_FALSE(rows_.back().Synced());
    session_.OnSenderReport(ReportAtStart(8), kStart);
    AddFrame(2, milliseconds(30), 8);
    EXPECT_TRUE(rows_.back().Synced());
}

TEST_F(StreamSessionTest, ACompleteFrameIsOneCallHoweverManyPackets) {
    session_.OnSenderReport(ReportAtStart(), kStart);
    for (int i = 0; i < 500; ++i) {
        receiver::RtpPacket packet;
        packet.seqnum = seqnum_++;
        packet.SSRC = 7;
        packet.marker = i == 499;
        packet.TOR_host = kStart + milliseconds(30 + i);
        session_.OnPacket(packet);
    }
    ASSERT_EQ(rows_.size(), 1U);
    EXPECT_EQ(rows_[0].frame.packets, 500U);
    EXPECT_EQ(rows_[0].frame.arrived_host, kStart + milliseconds(30));
}

TEST_F(StreamSessionTest, SilenceIsNoticedByTheHostsClock) {
    auto& clock = Utilities::getInstance();
    camera_.SetPacketTimeOut(std::chrono::seconds(5));
    AddFrame(0, milliseconds(0));
    clock.ResetTime(kStart + std::chrono::seconds(4), Utilities::GetCounter());
    EXPECT_TRUE(session_.ArrivalIsOk());
    clock.ResetTime(kStart + std::chrono::seconds(6), Utilities::GetCounter());
    EXPECT_FALSE(session_.ArrivalIsOk());
    clock.AnchorToSystemClock();
}

class UnfilteredSession : public StreamSessionTest {
protected:
    static TimingSettings Settings() {
        TimingSettings settings;
        settings.filtering = false;
        return settings;
    }
    UnfilteredSession()
        : StreamSessionTest(Settings()) {}
};

TEST_F(UnfilteredSession, ReportsTheCamerasOwnTime) {
    session_.OnSenderReport(ReportAtStart(), kStart);
    AddFrame(0, milliseconds(30));
    EXPECT_EQ(rows_.back().frame.captured_host, kStart + std::chrono::hours(1));
    EXPECT_EQ(rows_.back().frame.trust, receiver::Trust::kReplaced);
}

// RTP, RTCP and supervision come on threads of their own; the thread sanitizer watches this one.
TEST_F(StreamSessionTest, PacketsReportsAndSupervisionMayComeOnDifferentThreads) {
    std::thread rtp([this] {
        for (std::uint32_t n = 0; n < 2'000; ++n)
            AddFrame(n, milliseconds(30));
    });
    std::thread rtcp([this] {
        for (int i = 0; i < 500; ++i)
            session_.OnSenderReport(ReportAtStart(), kStart);
    });
    for (int i = 0; i < 500; ++i)
        session_.ArrivalIsOk();
    rtp.join();
    rtcp.join();
    EXPECT_EQ(rows_.size(), 2'000U);
    AddFrame(2'000, milliseconds(30));
    EXPECT_TRUE(rows_.back().Synced());
}

}  // namespace
}  // namespace camclock::app
