#include "timing/StreamFixture.h"

#include "support/Stamp.h"

#include <algorithm>
#include <thread>

namespace camclock::test {
namespace {

using TimeFilterInstanceTest = StreamFixture;

TEST_F(TimeFilterInstanceTest, StartsWithItsDefaults) {
    EXPECT_EQ(stream_->GetCurrentEstimationQuality(), MediaPacket::kTrustGood);
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), TimePoint{});
    EXPECT_EQ(stream_->GetCurrentStablePTS(), 0);
    EXPECT_EQ(camera_.CreateNewTimeFilter()->GetStreamId(), "");
}

TEST_F(TimeFilterInstanceTest, TellsOfItsBeginningAndEnd) {
    EXPECT_EQ(streamLog_.Messages(), Lines{"TimeFilterInstance::TimeFilterInstance"});
    stream_.reset();
    EXPECT_EQ(streamLog_.Messages(), (Lines{"TimeFilterInstance::TimeFilterInstance",
                                            "S7 TimeFilterInstance::~TimeFilterInstance"}));
    const std::vector<CapturedEvent> events = streamLog_.Events();
    for (const CapturedEvent& event : events) {
        EXPECT_EQ(event.category, "RTSP.TimeFilterInstance");
        EXPECT_EQ(event.priority, 600);
    }
}

TEST_F(TimeFilterInstanceTest, KeepsItsStreamId) {
    EXPECT_EQ(stream_->GetStreamId(), "S7 ");
    stream_->SetStreamId("");
    EXPECT_EQ(stream_->GetStreamId(), "");
    stream_->SetStreamId(std::string("a\0b", 3));
    EXPECT_EQ(stream_->GetStreamId(), std::string("a\0b", 3));
}

TEST_F(TimeFilterInstanceTest, TheFirstPacketIsTakenToBeTheStreamsWhole) {
    Feed(7, kStart + milliseconds(12));
    const Lines messages = StreamDeferred();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0], "S7  Packet #1, Stable pts initialized; T0: 2023-11-14 22:13:20.012, Pts0: 0");
    EXPECT_TRUE(IsTrace(messages[1]));  // the trace ends the road of a packet
    EXPECT_EQ(StreamDirect(), (Lines{"S7 Camera time of capture not available because there is no RTCP sync",
                                     "S7 - Falling back to host time of reception the: 0 th time"}));
}

TEST_F(TimeFilterInstanceTest, DeferredMessagesAreStampedEventsAtInfo) {
    Feed(0, kStart);
    ASSERT_TRUE(streamLog_.WaitForDeferred(2));
    for (const CapturedEvent& event : streamLog_.Events()) {
        EXPECT_EQ(event.category, "RTSP.TimeFilterInstance");
        EXPECT_EQ(event.priority, 600);
    }
}

TEST_F(TimeFilterInstanceTest, MessagesCarryTheIdOfTheirTime) {
    Feed(0, kStart);
    stream_->SetStreamId("later ");
    stream_->UpdateSyncInfo(Report(0));
    const Lines messages = StreamDeferredButTraces();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].substr(0, 13), "S7  Packet #1");
    EXPECT_EQ(messages[1].substr(0, 20), "later RTCP report #1");
}

TEST_F(TimeFilterInstanceTest, NoPacketIsIgnored) {
    stream_->UpdateTiming(nullptr, MediaPacket::kFrameI);
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), TimePoint{});
    Feed(0, kStart);
    EXPECT_EQ(StreamDeferredButTraces()[0].substr(0, 13), "S7  Packet #1");
}

TEST_F(TimeFilterInstanceTest, KeepsTheRecordsThatItNeedsAndReleasesTheOthers) {
    auto first = Packet(0, kStart);
    auto report = Report(0);
    const std::weak_ptr<TimingData> watchedPacket = first;
    const std::weak_ptr<SyncPoint> watchedReport = report;
    stream_->UpdateTiming(std::move(first), MediaPacket::kFrameP);
    stream_->UpdateSyncInfo(std::move(report));
    EXPECT_FALSE(watchedPacket.expired());
    EXPECT_FALSE(watchedReport.expired());
    Feed(3'600, kStart + milliseconds(40));
    stream_->UpdateSyncInfo(Report(450'000, kNtpStart + 5));
    EXPECT_TRUE(watchedReport.expired());
    StreamDeferred();  // the first packet's trace shares the record until it is written
    EXPECT_TRUE(watchedPacket.expired());
}

TEST_F(TimeFilterInstanceTest, HostileRecordsHaveDefinedResults) {
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
    const std::uint32_t words[] = {0, 1, 0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFFF};
    const TimePoint times[] = {kNotYetSet, TimePoint(Ticks(-1)), TimePoint{}, kStart, (TimePoint::max)()};
    std::int64_t last = 0;
    bool isFirst = true;
    for (const std::uint32_t report : words) {
        for (const std::uint32_t ntp : words) {
            stream_->UpdateSyncInfo(Report(report, ntp, ~ntp));
            for (const std::uint32_t RTP_ts : words) {
                for (const std::uint32_t rate : words) {
                    for (const TimePoint TOR_host : times) {
                        stream_->UpdateTiming(Packet(RTP_ts, TOR_host, rate), MediaPacket::kFrameI);
                        const std::int64_t pts = stream_->GetCurrentStablePTS();
                        ASSERT_TRUE(isFirst || pts != last);
                        isFirst = false;
                        last = pts;
                        stream_->PacketArrivalIsOk();
                    }
                }
            }
        }
    }
}

// Two streams of one camera run on two threads while the application changes the
// settings and reads the results.
TEST_F(TimeFilterInstanceTest, StreamsOfOneCameraMayRunOnTheirOwnThreads) {
    streamLog_.SetPriority(log4cpp::Priority::NOTICE);
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([this, t] {
            const auto stream = camera_.CreateNewTimeFilter();
            stream->SetStreamId("stream " + std::to_string(t));
            stream->DoEstimation(true);
            stream->DoTimeFiltering(true);
            stream->EnableTimeOutCheck(true);
            for (std::uint32_t i = 0; i < 500; ++i) {
                if (i % 50 == 10)
                    stream->UpdateSyncInfo(Report(3'600 * i, kNtpStart));
                stream->UpdateTiming(Packet(3'600 * i, kStart + milliseconds(40 * i)), MediaPacket::kFrameP);
                stream->GetCurrentTOC_Host();
                stream->PacketArrivalIsOk();
                stream->StablePtsIsOk();
                stream->TimeEstimatesInitialized();
            }
        });
    }
    threads.emplace_back([this] {
        for (int i = 0; i < 2'000; ++i) {
            camera_.SetD(milliseconds(i));
            camera_.SetSyncShift(milliseconds(-i));
            camera_.SetPacketTimeOut(milliseconds(i));
            camera_.SetRtcpTimeOut(milliseconds(i));
            camera_.RequireRTCP(i % 2 == 0);
            camera_.CheckPollDifference(milliseconds(i));
            camera_.SetStablePtst0(kStart + milliseconds(i), false);
        }
    });
    threads.emplace_back([this] {
        for (int i = 0; i < 2'000; ++i) {
            camera_.GetD();
            camera_.GetD_uncert();
            camera_.GetSyncShift();
            camera_.GetPacketTimeOut();
            camera_.GetRtcpTimeOut();
            camera_.RequireRTCP();
            camera_.DIsLocked();
            camera_.IsUsingProbe();
            camera_.IsTimeLogging();
            camera_.GetStablePtsT0(i % 2 == 0);
            camera_.StablePtsT0Locked();
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(camera_.DIsLocked());
}

using TimeFilterInstanceAboveInfo = SilentStreamFixture;

TEST_F(TimeFilterInstanceAboveInfo, WritesNothing) {
    stream_->UpdateTiming(Packet(0, kStart), MediaPacket::kFrameP);
    stream_.reset();
    EXPECT_TRUE(streamLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
