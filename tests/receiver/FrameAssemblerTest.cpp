#include "receiver/FrameAssembler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace camclock::receiver {
namespace {

using std::chrono::milliseconds;

/// Feeds packets by sequence number and stamp, 1 ms apart, and keeps the frames.
class Assembly {
public:
    void Add(std::uint16_t seq, std::uint32_t rtp_ts, bool marker = false,
             MediaPacket::Frametype type = MediaPacket::kFrameUnknown) {
        Piece piece;
        piece.seq = seq;
        piece.rtp_ts = rtp_ts;
        piece.marker = marker;
        piece.bytes = 100;
        piece.kind.type = type;
        piece.arrival_host = now;
        assembler.Add(piece, [this](const Assembled& frame) { frames.push_back(frame); });
        now += milliseconds(1);
    }
    void Poll() {
        assembler.Poll(now, [this](const Assembled& frame) { frames.push_back(frame); });
    }
    void Flush() {
        assembler.Flush([this](const Assembled& frame) { frames.push_back(frame); });
    }
    std::vector<std::uint32_t> Stamps() const {
        std::vector<std::uint32_t> stamps;
        for (const Assembled& frame : frames)
            stamps.push_back(frame.rtp_ts);
        return stamps;
    }

    FrameAssembler assembler;
    std::vector<Assembled> frames;
    TimePoint now = TimePoint(Ticks(17'000'000'000'000'000));
};

using Stamps = std::vector<std::uint32_t>;

TEST(FrameAssembler, TheMarkerCompletesAFrame) {
    Assembly a;
    const TimePoint first = a.now;
    a.Add(10, 3'000, false, MediaPacket::kFrameI);
    a.Add(11, 3'000);
    EXPECT_TRUE(a.frames.empty());
    a.Add(12, 3'000, true, MediaPacket::kFrameP);
    ASSERT_EQ(a.frames.size(), 1U);
    const Assembled& frame = a.frames[0];
    EXPECT_EQ(frame.rtp_ts, 3'000U);
    EXPECT_EQ(frame.seq, 10);
    EXPECT_EQ(frame.arrival_host, first);
    EXPECT_EQ(frame.packets, 3U);
    EXPECT_EQ(frame.bytes, 300U);
    EXPECT_EQ(frame.missing, 0U);
    EXPECT_EQ(frame.kind.type, MediaPacket::kFrameI) << "the first kind that a packet tells";
}

TEST(FrameAssembler, AnotherStampCompletesAFrameWithoutMarker) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(2, 6'000, true);
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 6'000}));
}

TEST(FrameAssembler, SequenceNumbersWrap) {
    Assembly a;
    a.Add(65'535, 3'000);
    a.Add(0, 3'000, true);
    ASSERT_EQ(a.frames.size(), 1U);
    EXPECT_EQ(a.frames[0].packets, 2U);
    EXPECT_EQ(a.assembler.Lost(), 0U);
}

TEST(FrameAssembler, SwappedPacketsArePutBack) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(3, 6'000);
    a.Add(2, 3'000, true);
    a.Add(4, 6'000, true);
    ASSERT_EQ(a.Stamps(), (Stamps{3'000, 6'000}));
    EXPECT_EQ(a.frames[0].packets, 2U);
    EXPECT_EQ(a.frames[1].packets, 2U);
    EXPECT_EQ(a.frames[1].missing, 0U);
    EXPECT_EQ(a.assembler.Lost(), 0U);
    EXPECT_EQ(a.assembler.Late(), 0U);
}

TEST(FrameAssembler, ArrivalIsThatOfThePacketThatCameFirst) {
    Assembly a;
    a.Add(1, 3'000, true);
    const TimePoint early = a.now;
    a.Add(3, 6'000, true);
    a.Add(2, 6'000);
    ASSERT_EQ(a.frames.size(), 2U);
    EXPECT_EQ(a.frames[1].arrival_host, early);
    EXPECT_EQ(a.frames[1].seq, 2);
}

TEST(FrameAssembler, EightPacketsWaitForAMissingOne) {
    Assembly a;
    a.Add(1, 1, true);
    for (std::uint16_t i = 0; i < 7; ++i)
        a.Add(static_cast<std::uint16_t>(3 + i), 3U + i, true);
    EXPECT_EQ(a.Stamps(), (Stamps{1}));
    a.Add(10, 10, true);
    EXPECT_EQ(a.Stamps(), (Stamps{1, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(a.frames[1].missing, 1U) << "right before it";
    EXPECT_EQ(a.frames[2].missing, 0U);
    EXPECT_EQ(a.assembler.Lost(), 1U);
}

TEST(FrameAssembler, AQuarterOfASecondEndsTheWaiting) {
    Assembly a;
    a.Add(1, 1, true);
    a.Add(3, 3, true);
    a.now += milliseconds(249);
    a.Poll();
    EXPECT_EQ(a.Stamps(), (Stamps{1}));
    a.now += milliseconds(1);
    a.Poll();
    EXPECT_EQ(a.Stamps(), (Stamps{1, 3}));
    EXPECT_EQ(a.assembler.Lost(), 1U);
}

TEST(FrameAssembler, AGapBetweenTwoFramesLeavesBothIncomplete) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(3, 6'000);
    a.Flush();
    ASSERT_EQ(a.Stamps(), (Stamps{3'000, 6'000}));
    EXPECT_EQ(a.frames[0].missing, 1U);
    EXPECT_EQ(a.frames[1].missing, 1U);
}

TEST(FrameAssembler, ALatePacketJoinsTheOpenFrame) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(3, 3'000);
    a.now += milliseconds(300);
    a.Poll();
    EXPECT_EQ(a.assembler.Lost(), 1U);
    a.Add(2, 3'000);
    EXPECT_EQ(a.assembler.Lost(), 0U);
    a.Add(4, 3'000, true);
    ASSERT_EQ(a.frames.size(), 1U);
    EXPECT_EQ(a.frames[0].packets, 4U);
    EXPECT_EQ(a.frames[0].missing, 0U);
    EXPECT_EQ(a.assembler.Late(), 0U);
}

TEST(FrameAssembler, APacketThatComesAfterItsFrameIsLateAndNotLost) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(3, 3'000, true);
    a.now += milliseconds(300);
    a.Poll();
    a.Add(2, 3'000);
    EXPECT_EQ(a.frames.size(), 1U);
    EXPECT_EQ(a.assembler.Lost(), 0U);
    EXPECT_EQ(a.assembler.Late(), 1U);
}

TEST(FrameAssembler, ADoubledPacketCountsOnce) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(1, 3'000);
    a.Add(3, 3'000);
    a.Add(3, 3'000);
    a.Add(2, 3'000);
    a.Add(4, 3'000, true);
    ASSERT_EQ(a.frames.size(), 1U);
    EXPECT_EQ(a.frames[0].packets, 4U);
    EXPECT_EQ(a.assembler.Late(), 2U);
    EXPECT_EQ(a.assembler.Lost(), 0U);
}

TEST(FrameAssembler, OnePacketFarOffTheSequenceIsNotBelieved) {
    Assembly a;
    a.Add(1, 3'000, true);
    a.Add(30'000, 9'999'999, true);
    a.Add(2, 6'000, true);
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 6'000}));
    EXPECT_EQ(a.assembler.Late(), 1U);
    EXPECT_EQ(a.assembler.Lost(), 0U);
}

TEST(FrameAssembler, TwoInARowBeginAnotherRun) {
    Assembly a;
    a.Add(5'000, 3'000);
    a.Add(100, 9'000, true);
    a.Add(101, 12'000, true);
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 9'000, 12'000}));
    EXPECT_EQ(a.assembler.Late(), 0U);
    EXPECT_EQ(a.assembler.Lost(), 0U) << "nobody knows what lies between two runs";
}

TEST(FrameAssembler, ALongOutageCountsWhatItLost) {
    Assembly a;
    a.Add(100, 3'000, true);
    a.Add(10'100, 9'000, true);
    a.Add(10'101, 12'000, true);
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 9'000, 12'000}));
    EXPECT_EQ(a.assembler.Lost(), 9'999U);
    EXPECT_GT(a.frames[1].missing, 0U);
}

TEST(FrameAssembler, MarkersThatComeTooOftenAreNotBelievedForLong) {
    Assembly a;
    std::uint16_t seq = 0;
    for (std::uint32_t frame = 1; frame <= 6; ++frame) {
        for (int packet = 0; packet < 2; ++packet)
            a.Add(seq++, frame, true);
    }
    a.Flush();
    ASSERT_EQ(a.Stamps(), (Stamps{1, 2, 3, 4, 5, 6})) << "one frame for each stamp";
    EXPECT_EQ(a.frames[2].packets, 1U);
    EXPECT_EQ(a.frames[3].packets, 2U);
    EXPECT_EQ(a.assembler.Late(), 3U);
}

TEST(FrameAssembler, FlushDeliversWhatWaitsAndWhatIsOpen) {
    Assembly a;
    a.Add(1, 3'000);
    a.Add(3, 6'000, true);
    a.Add(5, 9'000);
    a.Flush();
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 6'000, 9'000}));
    EXPECT_EQ(a.assembler.Lost(), 2U);
    a.Flush();
    EXPECT_EQ(a.frames.size(), 3U);
}

TEST(FrameAssembler, AfterARestartAnySequenceBegins) {
    Assembly a;
    a.Add(1, 3'000, true);
    a.Flush();
    a.assembler.Restart();
    a.Add(40'000, 3'000, true);
    EXPECT_EQ(a.Stamps(), (Stamps{3'000, 3'000}));
    EXPECT_EQ(a.assembler.Lost(), 0U);
}

TEST(FrameAssembler, AnyPacketsMakeNoMoreFramesThanPackets) {
    Assembly a;
    std::uint64_t state = 1;
    const auto next = [&state] {
        return static_cast<std::uint32_t>((state = state * 6364136223846793005U + 1) >> 33);
    };
    constexpr std::uint64_t kPackets = 200'000;
    for (std::uint64_t i = 0; i < kPackets; ++i) {
        if (next() % 64 == 0)
            a.now = TimePoint(Ticks(static_cast<std::int64_t>(std::uint64_t{next()} << 33 | next())));
        const std::uint32_t range = next() % 3 == 0 ? 65'536 : 40;
        a.Add(static_cast<std::uint16_t>(next() % range), next() % 8, next() % 4 == 0);
    }
    a.Flush();
    std::uint64_t packets = 0;
    for (const Assembled& frame : a.frames)
        packets += frame.packets;
    EXPECT_EQ(packets + a.assembler.Late(), kPackets) << "each packet is in a frame, or counted as dropped";
}

}  // namespace
}  // namespace camclock::receiver
