#include "probe/IcmpTimestamp.h"

#include "support/IcmpReplies.h"

#include <gtest/gtest.h>

namespace camclock {
namespace {

test::Bytes ToBytes(const icmp::TimestampRequest& request) {
    return {request.begin(), request.end()};
}

// Little-endian hosts alone, which all of the supported ones are.
TEST(IcmpTimestamp, WritesFieldsInHostByteOrder) {
    EXPECT_EQ(ToBytes(icmp::MakeRequest(0x4567, 0x0102, 0x0A0B0C0D)),
              (test::Bytes{13,   0,    0x71, 0xA3, 0x67, 0x45, 0x02, 0x01, 0x0D, 0x0C,
                           0x0B, 0x0A, 0,    0,    0,    0,    0,    0,    0,    0}));
}

TEST(IcmpTimestamp, ChecksumFoldsTwice) {
    const icmp::TimestampRequest message{0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0,
                                         0,    0,    0, 0, 0,    0,    0, 0, 0, 0};
    EXPECT_EQ(icmp::Checksum(message), 0x0000);
    // These words add up to 0x2'FFFE: the first fold gives 0x1'0000, the second
    // 0x1'0001, of which 16 bits count.
    const icmp::TimestampRequest carries{0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0x01, 0, 0xFF, 0xFF,
                                         0,    0,    0, 0, 0,    0,    0,    0, 0,    0};
    EXPECT_EQ(icmp::Checksum(carries), 0xFFFE);
}

TEST(IcmpTimestamp, ChecksumOfNothingIsAllOnes) {
    EXPECT_EQ(icmp::Checksum(icmp::TimestampRequest{}), 0xFFFF);
}

TEST(IcmpTimestamp, RequestWithItsChecksumAddsUpToAllOnes) {
    for (std::uint32_t id = 0; id < 0x10000; id += 251) {
        const icmp::TimestampRequest request = icmp::MakeRequest(
            static_cast<std::uint16_t>(id), static_cast<std::uint16_t>(~id), 86'399'999 - id);
        EXPECT_EQ(icmp::Checksum(request), 0x0000) << id;
    }
}

TEST(IcmpTimestamp, ReadsEchoedFieldsInHostAndTransmitTimeInNetworkByteOrder) {
    const test::Bytes request = ToBytes(icmp::MakeRequest(0x4567, 3, 36'000'000));
    const test::Bytes bytes = test::GoodReply(request, 0x01020304);
    ASSERT_EQ(bytes.size(), icmp::kReplySize);
    EXPECT_EQ(bytes[36], 1);
    const icmp::TimestampReply reply = icmp::ReadReply(bytes.data());
    EXPECT_EQ(reply.protocol, 1);
    EXPECT_EQ(reply.type, 14);
    EXPECT_EQ(reply.identifier, 0x4567);
    EXPECT_EQ(reply.originate_ms, 36'000'000u);
    EXPECT_EQ(reply.transmit_ms, 0x01020304u);
}

}  // namespace
}  // namespace camclock
