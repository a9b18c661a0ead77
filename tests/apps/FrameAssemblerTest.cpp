#include "apps/camclock/sources/FrameAssembler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace camclock::app {
namespace {

constexpr std::uint8_t kPayload[] = {0x41, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0};  // a P slice

class FrameAssemblerTest : public testing::Test {
protected:
    void Add(std::uint16_t seqnum, std::uint32_t RTP_ts, bool marker) {
        receiver::RtpPacket packet;
        packet.seqnum = seqnum;
        packet.RTP_ts = RTP_ts;
        packet.SSRC = 7;
        packet.marker = marker;
        packet.payload = kPayload;
        packet.size = sizeof kPayload;
        packet.TOR_host = TimePoint(Ticks(++arrival_));
        assembler_.Add(packet);
    }

    std::vector<Frame> frames_;
    std::int64_t arrival_ = 0;  // the n-th packet arrives at n ticks
    FrameAssembler assembler_{receiver::Codec::kH264,
                              [this](const Frame& frame) { frames_.push_back(frame); }};
};

TEST_F(FrameAssemblerTest, MarkerCompletesTheFrame) {
    Add(100, 9000, false);
    Add(101, 9000, false);
    EXPECT_TRUE(frames_.empty());
    Add(102, 9000, true);
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].RTP_ts, 9000U);
    EXPECT_EQ(frames_[0].SSRC, 7U);
    EXPECT_EQ(frames_[0].seqnum, 100);
    EXPECT_EQ(frames_[0].packets, 3U);
    EXPECT_EQ(frames_[0].bytes, 30U);
    EXPECT_EQ(frames_[0].type, MediaPacket::kFrameP);
}

TEST_F(FrameAssemblerTest, TimeOfReceptionIsThatOfTheFirstPacket) {
    Add(1, 0, true);
    Add(2, 3600, false);
    Add(3, 3600, true);
    ASSERT_EQ(frames_.size(), 2U);
    EXPECT_EQ(frames_[1].TOR_host, TimePoint(Ticks(2)));
}

TEST_F(FrameAssemblerTest, AnotherTimeStampCompletesAFrameWhoseMarkerIsLost) {
    Add(1, 9000, false);
    Add(2, 12600, true);
    ASSERT_EQ(frames_.size(), 2U);
    EXPECT_EQ(frames_[0].RTP_ts, 9000U);
    EXPECT_EQ(frames_[1].RTP_ts, 12600U);
}

TEST_F(FrameAssemblerTest, ATimeStampWithSeveralMarkersGivesOneFrame) {
    Add(1, 9000, true);
    Add(2, 9000, true);
    Add(3, 9000, true);
    Add(4, 12600, true);
    ASSERT_EQ(frames_.size(), 2U);
    EXPECT_EQ(frames_[0].RTP_ts, 9000U);
    EXPECT_EQ(frames_[1].RTP_ts, 12600U);
    EXPECT_EQ(assembler_.LostPackets(), 0U);
}

TEST_F(FrameAssemblerTest, AnEarlierTimeStampInSequenceIsAFrame) {  // B frames come in decoding order
    Add(1, 9000, true);
    Add(2, 16200, true);
    Add(3, 12600, true);
    ASSERT_EQ(frames_.size(), 3U);
    EXPECT_EQ(frames_[2].RTP_ts, 12600U);
}

TEST_F(FrameAssemblerTest, MissingSequenceNumbersAreLost) {
    Add(1, 9000, false);
    Add(4, 9000, true);
    EXPECT_EQ(assembler_.LostPackets(), 2U);
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].packets, 2U);
}

TEST_F(FrameAssemblerTest, APacketThatIsOvertakenInsideItsFrameStillCounts) {
    Add(1, 9000, false);
    Add(3, 9000, false);
    Add(2, 9000, false);
    Add(4, 9000, true);
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].packets, 4U);
    EXPECT_EQ(assembler_.LostPackets(), 0U);
    EXPECT_EQ(assembler_.LatePackets(), 0U);
}

TEST_F(FrameAssemblerTest, APacketOfACompleteFrameThatComesLateIsDropped) {
    Add(1, 9000, false);
    Add(3, 9000, true);
    Add(4, 12600, false);
    Add(2, 9000, false);
    Add(5, 12600, true);
    ASSERT_EQ(frames_.size(), 2U);
    EXPECT_EQ(frames_[0].packets, 2U);
    EXPECT_EQ(frames_[1].packets, 2U);
    EXPECT_EQ(assembler_.LatePackets(), 1U);
    EXPECT_EQ(assembler_.LostPackets(), 0U);
}

TEST_F(FrameAssemblerTest, ADoubledPacketIsDropped) {
    Add(1, 9000, false);
    Add(1, 9000, false);
    Add(2, 9000, true);
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].packets, 2U);
    EXPECT_EQ(assembler_.LatePackets(), 1U);
}

TEST_F(FrameAssemblerTest, SequenceNumbersAndTimeStampsWrap) {
    Add(65'535, 0xFFFF'FFFF, false);
    Add(0, 0xFFFF'FFFF, true);
    Add(1, 3599, true);
    ASSERT_EQ(frames_.size(), 2U);
    EXPECT_EQ(frames_[0].packets, 2U);
    EXPECT_EQ(assembler_.LostPackets(), 0U);
}

TEST_F(FrameAssemblerTest, SequenceNumbersFarBackStartANewRun) {
    Add(5'000, 9000, true);
    Add(4'900, 12600, true);  // 100 behind
    ASSERT_EQ(frames_.size(), 2U);
    Add(4'801, 16200, true);  // 99 behind: late
    EXPECT_EQ(frames_.size(), 2U);
    EXPECT_EQ(assembler_.LatePackets(), 1U);
    Add(4'901, 19800, true);
    EXPECT_EQ(frames_.size(), 3U);
}

TEST_F(FrameAssemblerTest, FinishDeliversWhatIsOpenAndForgetsTheSequence) {
    Add(1, 9000, false);
    assembler_.Finish();
    ASSERT_EQ(frames_.size(), 1U);
    assembler_.Finish();
    EXPECT_EQ(frames_.size(), 1U);
    Add(1, 9000, true);  // the same numbers, of another source
    EXPECT_EQ(frames_.size(), 2U);
}

TEST_F(FrameAssemblerTest, TypeOfAFrameComesFromItsFirstPictureHeader) {
    constexpr std::uint8_t kParameterSet[] = {0x67, 0x42};
    constexpr std::uint8_t kIdr[] = {0x65, 0x88};
    receiver::RtpPacket packet;
    packet.SSRC = 7;
    packet.seqnum = 1;
    packet.payload = kParameterSet;
    packet.size = sizeof kParameterSet;
    assembler_.Add(packet);
    packet.seqnum = 2;
    packet.payload = kIdr;
    packet.size = sizeof kIdr;
    assembler_.Add(packet);
    Add(3, 0, true);  // says P
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].type, MediaPacket::kFrameI);
}

TEST_F(FrameAssemblerTest, APacketWithoutPayloadIsCounted) {
    receiver::RtpPacket packet;
    packet.marker = true;
    assembler_.Add(packet);
    ASSERT_EQ(frames_.size(), 1U);
    EXPECT_EQ(frames_[0].bytes, 0U);
    EXPECT_EQ(frames_[0].type, MediaPacket::kFrameUnknown);
}

}  // namespace
}  // namespace camclock::app
