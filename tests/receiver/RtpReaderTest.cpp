#include "receiver/RtpReader.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// A fixed header with its first two bytes, sequence number 0x1234, time 0x01020304, source 0xA1B2C3D4.
Bytes Packet(std::uint8_t first, std::uint8_t second, const Bytes& rest = {}) {
    Bytes bytes{first, second, 0x12, 0x34, 1, 2, 3, 4, 0xA1, 0xB2, 0xC3, 0xD4};
    for (const std::uint8_t byte : rest)
        bytes.push_back(byte);
    return bytes;
}

/// In memory of exactly its size, so that a sanitizer sees a byte read behind it.
std::optional<RtpPacket> Read(const Bytes& datagram) {
    return ReadRtp(datagram.data(), datagram.size());
}

struct Accepted {
    std::string name;
    Bytes datagram;
    std::uint8_t payloadType;
    bool marker;
    std::size_t start;  // of the payload
    std::size_t size;
};

void PrintTo(const Accepted& value, std::ostream* out) {
    *out << value.name;
}

class RtpReader : public testing::TestWithParam<Accepted> {};

TEST_P(RtpReader, Reads) {
    const Accepted& expected = GetParam();
    const auto packet = Read(expected.datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->RTP_ts, 0x01020304U);
    EXPECT_EQ(packet->SSRC, 0xA1B2C3D4U);
    EXPECT_EQ(packet->seqnum, 0x1234U);
    EXPECT_EQ(packet->payloadType, expected.payloadType);
    EXPECT_EQ(packet->marker, expected.marker);
    EXPECT_EQ(packet->payload, expected.datagram.data() + expected.start);
    EXPECT_EQ(packet->size, expected.size);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, RtpReader,
    testing::Values(
        Accepted{"Plain", Packet(0x80, 96, {7, 8, 9}), 96, false, 12, 3},
        Accepted{"WithMarker", Packet(0x80, 0x80 | 96, {7}), 96, true, 12, 1},
        Accepted{"WithoutPayload", Packet(0x80, 96), 96, false, 12, 0},
        Accepted{"StaticTypeWithMarker", Packet(0x80, 0x80 | 26, {7}), 26, true, 12, 1},
        Accepted{"Type72WithoutMarker", Packet(0x80, 72, {7}), 72, false, 12, 1},
        Accepted{"Type63WithMarker", Packet(0x80, 191, {7}), 63, true, 12, 1},
        Accepted{"Type96WithMarker", Packet(0x80, 224, {7}), 96, true, 12, 1},
        Accepted{"OneContributor", Packet(0x81, 96, {1, 1, 1, 1, 7}), 96, false, 16, 1},
        Accepted{"FifteenContributors", Packet(0x8F, 96, Bytes(61, 7)), 96, false, 72, 1},
        Accepted{"EmptyExtension", Packet(0x90, 96, {0xBE, 0xDE, 0, 0, 7}), 96, false, 16, 1},
        Accepted{"ExtensionOfAWord", Packet(0x90, 96, {0xBE, 0xDE, 0, 1, 1, 2, 3, 4, 7}), 96, false, 20, 1},
        Accepted{"ExtensionThatFillsThePacket", Packet(0x90, 96, {0, 0, 0, 1, 1, 2, 3, 4}), 96, false, 20, 0},
        Accepted{"ContributorAndExtension", Packet(0x91, 96, {1, 1, 1, 1, 0, 0, 0, 0, 7}), 96, false, 20, 1},
        Accepted{"PaddingOfOne", Packet(0xA0, 96, {7, 8, 1}), 96, false, 12, 2},
        Accepted{"PaddingOfThree", Packet(0xA0, 96, {7, 0, 0, 3}), 96, false, 12, 1},
        Accepted{"PaddingOnly", Packet(0xA0, 96, {0, 0, 0, 4}), 96, false, 12, 0},
        Accepted{"Everything", Packet(0xB1, 0x80 | 97, {1, 1, 1, 1, 0, 0, 0, 1, 2, 2, 2, 2, 7, 9, 2}), 97,
                 true, 24, 1}),
    test::CaseName());

struct Refused {
    std::string name;
    Bytes datagram;
};

void PrintTo(const Refused& value, std::ostream* out) {
    *out << value.name;
}

class RtpReaderRefuses : public testing::TestWithParam<Refused> {};

TEST_P(RtpReaderRefuses, WhatIsNoRtp) {
    EXPECT_FALSE(Read(GetParam().datagram));
}

INSTANTIATE_TEST_SUITE_P(
    Datagrams, RtpReaderRefuses,
    testing::Values(
        Refused{"Nothing", {}}, Refused{"ElevenBytes", {0x80, 96, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        Refused{"Version0", Packet(0x00, 96, {7})}, Refused{"Version1", Packet(0x40, 96, {7})},
        Refused{"Version3", Packet(0xC0, 96, {7})}, Refused{"SenderReport", Packet(0x80, 200, Bytes(16, 0))},
        Refused{"LowestRtcpType", Packet(0x80, 192, {7})}, Refused{"HighestRtcpType", Packet(0x80, 223, {7})},
        Refused{"ContributorsBeyondTheEnd", Packet(0x82, 96, {1, 1, 1, 1, 2, 2, 2})},
        Refused{"ExtensionHeaderCutShort", Packet(0x90, 96, {0xBE, 0xDE, 0})},
        Refused{"ExtensionBeyondTheEnd", Packet(0x90, 96, {0xBE, 0xDE, 0, 2, 1, 2, 3, 4, 5, 6, 7})},
        Refused{"LongestExtension", Packet(0x90, 96, {0xBE, 0xDE, 0xFF, 0xFF, 1})},
        Refused{"PaddingWithoutBytes", Packet(0xA0, 96)}, Refused{"PaddingOfNone", Packet(0xA0, 96, {7, 0})},
        Refused{"PaddingOverThePayload", Packet(0xA0, 96, {7, 3})},
        Refused{"PaddingIntoTheExtension", Packet(0xB0, 96, {0, 0, 0, 1, 1, 2, 3, 1})}),
    test::CaseName());

TEST(RtpReaderRefuses, NullWithoutBytes) {
    EXPECT_FALSE(ReadRtp(nullptr, 0));
}

}  // namespace
}  // namespace camclock::receiver
