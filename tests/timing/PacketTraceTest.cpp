#include "timing/StreamFixture.h"

#include "support/TimeZone.h"
#include "timing/TrustText.h"

namespace camclock::test {
namespace {

class PacketTrace : public StreamFixture {
protected:
    /// All traces up to now.
    Lines Traces() {
        Lines messages;
        for (const std::string& message : StreamDeferred()) {
            if (IsTrace(message))
                messages.push_back(message);
        }
        return messages;
    }

private:
    const TimeZone utc_{"UTC0"};
};

TEST_F(PacketTrace, PrintsEveryField) {
    stream_->DoTimeFiltering(true);
    camera_.SetD(milliseconds(-3'600'123));
    stream_->UpdateSyncInfo(Report(4'000'000'000, kNtpStart + 7'200, 0x4000'0000));
    const auto packet = Packet(4'000'045'000, kStart + milliseconds(3'601'042), 90'000);
    packet->RTPSeqnum = 11;
    packet->SSRC = 12;
    packet->LiveTOR_tv_sec = 13;
    packet->LiveTOR_tv_usec = 14;
    packet->LivePts_tv_sec = 3'723;
    packet->LivePts_tv_usec = 1'000'045;
    packet->RTCP_sync = true;
    stream_->UpdateTiming(packet, MediaPacket::kFrameI);
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 1U);
    EXPECT_EQ(traces[0], "S7 \n"
                         "\tPacket #1\n"
                         "\tRTP_ts: 4000045000\n"
                         "\tRTP_freq: 90000\n"
                         "\tRTCP_sync: true\n"
                         "\tLive_pts: 01:02:04.000045\n"
                         "\tTOC_cam: 2023-11-15 00:13:20.749\n"
                         "\tTOC_host: 2023-11-14 23:13:20.626\n"
                         "\tTOR_host: 2023-11-14 23:13:21.042\n"
                         "\tD: -3600123[ms]\n"
                         "\tD_uncert: 0[us]\tIsKeyframe: true\n"
                         "\tCurrent estimation quality: Good\n"
                         "\tBad estimate count: 0\n");
}

TEST_F(PacketTrace, UncertaintyAndKeyframeShareALine) {
    Feed(0, kStart);
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 1U);
    EXPECT_NE(traces[0].find("\n\tD_uncert: 0[us]\tIsKeyframe: false\n"), std::string::npos) << traces[0];
}

TEST_F(PacketTrace, CarriesNegativeMicrosecondsIntoTheSeconds) {
    const auto packet = Packet(0, kStart);
    packet->LivePts_tv_sec = -1;
    packet->LivePts_tv_usec = -500'000;
    stream_->UpdateTiming(packet, MediaPacket::kFrameUnknown);
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 1U);
    EXPECT_NE(traces[0].find("\n\tLive_pts: -00:00:02.500000\n"), std::string::npos) << traces[0];
}

TEST_F(PacketTrace, OnlyGoodIsCalledGood) {
    EXPECT_STREQ(TrustText(MediaPacket::kTrustGood), "Good");
    EXPECT_STREQ(TrustText(MediaPacket::kTrustReserved), "Bad");
    EXPECT_STREQ(TrustText(MediaPacket::kTrustBad), "Bad");
}

// The numbers stand in timing logs, and applications store them.
TEST(MediaPacketEnums, KeepTheirNumbers) {
    EXPECT_EQ(MediaPacket::kTrustGood, 0);
    EXPECT_EQ(MediaPacket::kTrustReserved, 1);
    EXPECT_EQ(MediaPacket::kTrustBad, 2);
    EXPECT_EQ(MediaPacket::kFrameUnknown, 0);
    EXPECT_EQ(MediaPacket::kFrameI, 1);
    EXPECT_EQ(MediaPacket::kFrameB, 2);
    EXPECT_EQ(MediaPacket::kFrameP, 3);
    EXPECT_EQ(MediaPacket::kFrameSprite, 4);
    EXPECT_EQ(MediaPacket::kPixelUnknown, 0);
    EXPECT_EQ(MediaPacket::kPixelMonochrome, 1);
    EXPECT_EQ(MediaPacket::kPixel420, 2);
    EXPECT_EQ(MediaPacket::kPixel422, 3);
    EXPECT_EQ(MediaPacket::kPixel444, 4);
}

TEST_F(PacketTrace, TimesThatTheCalendarDoesNotHaveAreInvalid) {
    Feed(0, kNotYetSet);
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 1U);
    EXPECT_NE(traces[0].find("\n\tTOC_cam: Invalid timepoint\n\tTOC_host: Invalid timepoint\n"
                             "\tTOR_host: Invalid timepoint\n"),
              std::string::npos)
        << traces[0];
}

TEST_F(PacketTrace, OnlyTheIntraCodedFrameIsAKeyFrame) {
    const Lines expected{"false", "true", "false", "false", "false"};
    for (std::int32_t type = 0; type <= 4; ++type) {
        const auto stream = camera_.CreateNewTimeFilter();
        stream->SetStreamId("type " + std::to_string(type) + " ");
        stream->UpdateTiming(Packet(0, kStart), static_cast<MediaPacket::Frametype>(type));
        const std::string id = stream->GetStreamId() + "\n";
        ASSERT_TRUE(streamLog_.WaitUntilDeferred([&](const Lines& all) {
            for (const std::string& message : all) {
                if (message.compare(0, id.size(), id) == 0) {
                    EXPECT_NE(
                        message.find("\tIsKeyframe: " + expected[static_cast<std::size_t>(type)] + "\n"),
                        std::string::npos)
                        << message;
                    return true;
                }
            }
            return false;
        }));
    }
}

TEST_F(PacketTrace, ComesWithTheFirstAndEvery200thPacket) {
    for (std::uint32_t i = 1; i <= 601; ++i)
        Feed(3'600 * i, kStart + milliseconds(40 * i));
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 4U);
    EXPECT_EQ(traces[0].substr(0, 16), "S7 \n\tPacket #1\n\t");
    EXPECT_EQ(traces[1].substr(0, 16), "S7 \n\tPacket #200");
    EXPECT_EQ(traces[2].substr(0, 16), "S7 \n\tPacket #400");
    EXPECT_EQ(traces[3].substr(0, 16), "S7 \n\tPacket #600");
}

TEST_F(PacketTrace, MayBeAskedForAtAnyTime) {
    stream_->TraceCurrentPacket();  // no packet yet: nothing to tell
    Feed(0, kStart);
    stream_->SetStreamId("new id");
    stream_->TraceCurrentPacket();
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 2U);
    EXPECT_EQ(traces[1].substr(0, 17), "new id\n\tPacket #1");
    EXPECT_NE(traces[1].find("\tCurrent estimation quality: Bad\n"), std::string::npos);  // filtering is off
}

TEST_F(PacketTrace, KeepsTheValuesOfItsTime) {
    Feed(0, kStart);
    for (int D_ms = 1; D_ms <= 100; ++D_ms) {
        camera_.SetD(milliseconds(D_ms));
        stream_->TraceCurrentPacket();
    }
    camera_.SetD(milliseconds(-1));
    const Lines traces = Traces();
    ASSERT_EQ(traces.size(), 101U);
    for (std::size_t i = 0; i <= 100; ++i)
        EXPECT_NE(traces[i].find("\tD: " + std::to_string(i) + "[ms]\n"), std::string::npos) << traces[i];
}

}  // namespace
}  // namespace camclock::test
