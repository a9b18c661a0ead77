#include "receiver/RtcpReader.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// Source 0xA1B2C3D4, NTP 0xE0000001'80000002, RTP time 0x00015F90, 3 packets, 4 bytes, no report block.
const Bytes kSr{0x80, 200, 0, 6, 0xA1, 0xB2, 0xC3, 0xD4, 0xE0, 0, 0, 1, 0x80, 0,
                0,    2,   0, 1, 0x5F, 0x90, 0,    0,    0,    3, 0, 0, 0,    4};
/// The same of source 5 at RTP time 9, with one report block.
const Bytes kSrWithBlock =
    Bytes{0x81, 200, 0, 12, 0, 0, 0, 5, 0xE0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 3, 0, 0, 0, 4} +
    Bytes(24, 0x55);
const Bytes kRr{0x80, 201, 0, 1, 0, 0, 0, 5};
const Bytes kSdes{0x81, 202, 0, 2, 0xA1, 0xB2, 0xC3, 0xD4, 0, 0, 0, 0};
const Bytes kByeOfTwo{0x82, 203, 0, 2, 0xA1, 0xB2, 0xC3, 0xD4, 0, 0, 0, 5};

struct Case {
    std::string name;
    Bytes datagram;
    bool isRtcp;
    std::vector<std::uint32_t> reports;  // their sources
    std::vector<std::uint32_t> byes;
};

void PrintTo(const Case& value, std::ostream* out) {
    *out << value.name;
}

std::vector<std::uint32_t> SourcesOf(const RtcpContents& contents) {
    std::vector<std::uint32_t> sources;
    for (const SenderReport& report : contents.reports)
        sources.push_back(report.SSRC);
    return sources;
}

class RtcpReader : public testing::TestWithParam<Case> {};

TEST_P(RtcpReader, Reads) {
    const Case& expected = GetParam();
    RtcpContents contents;
    EXPECT_EQ(ReadRtcp(expected.datagram.data(), expected.datagram.size(), contents), expected.isRtcp);
    EXPECT_EQ(SourcesOf(contents), expected.reports);
    EXPECT_EQ(contents.byes, expected.byes);
}

constexpr std::uint32_t kSource = 0xA1B2C3D4;

INSTANTIATE_TEST_SUITE_P(
    Datagrams, RtcpReader,
    testing::Values(
        Case{"SenderReport", kSr, true, {kSource}, {}},
        Case{"SenderReportWithBlock", kSrWithBlock, true, {5}, {}},
        Case{"Compound", kSr + kSdes, true, {kSource}, {}},
        Case{"TwoReports", kSr + kSdes + kSrWithBlock, true, {kSource, 5}, {}},
        Case{"ReceiverReport", kRr, true, {}, {}}, Case{"ReducedSizeSdes", kSdes, true, {}, {}},
        Case{"ReducedSizeBye", kByeOfTwo, true, {}, {kSource, 5}},
        Case{"ReportBehindReceiverReport", kRr + kSr, true, {kSource}, {}},
        Case{"Goodbye", kRr + kSdes + kByeOfTwo, true, {}, {kSource, 5}},
        Case{"GoodbyeOfNobody", {0x80, 203, 0, 0}, true, {}, {}},
        Case{"GoodbyeWithReason",
             {0x81, 203, 0, 3, 0, 0, 0, 5, 4, 'd', 'o', 'n', 'e', 0, 0, 0},
             true,
             {},
             {5}},
        Case{"Padded", kSr + Bytes{0xA0, 201, 0, 2, 0, 0, 0, 5, 0, 0, 0, 4}, true, {kSource}, {}},
        Case{"UnknownTypeInBetween",
             kSr + Bytes{0x80, 210, 0, 1, 9, 9, 9, 9} + kByeOfTwo,
             true,
             {kSource},
             {kSource, 5}},

        Case{"Nothing", {}, false, {}, {}}, Case{"ThreeBytes", {0x80, 200, 0}, false, {}, {}},
        Case{"Version1", Bytes{0x40} + Bytes(kSr.begin() + 1, kSr.end()), false, {}, {}},
        Case{"Rtp", {0x80, 96, 0, 2, 0, 0, 0, 1, 0, 0, 0, 1}, false, {}, {}},
        Case{"LongerThanTheDatagram", Bytes(kSr.begin(), kSr.end() - 1), false, {}, {}},
        Case{"ReportTooShort",
             {0x80, 200, 0, 5, 0, 0, 0, 5, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4},
             false,
             {},
             {}},
        Case{"ReportUnderPadding",
             Bytes{0xA0} + Bytes(kSr.begin() + 1, kSr.end()),  // its last byte, 4, takes the octet count away
             false,
             {},
             {}},
        Case{"GoodbyeOfMoreThanItHolds", {0x83, 203, 0, 2, 0, 0, 0, 5, 0, 0, 0, 6}, false, {}, {}},
        Case{"PaddingOfNone", {0xA0, 201, 0, 1, 0, 0, 0, 0}, false, {}, {}},
        Case{"PaddingOverTheHeader", {0xA0, 201, 0, 1, 0, 0, 0, 5}, false, {}, {}},
        Case{"PaddingWithoutBytes", {0xA0, 201, 0, 0}, false, {}, {}},

        Case{"BrokenBehindAReport", kSr + Bytes{0x40, 202, 0, 0}, true, {kSource}, {}},
        Case{"RestTooShortForAHeader", kSr + Bytes{0x80, 203}, true, {kSource}, {}},
        Case{"NothingBehindABrokenOne", kSr + Bytes{0x80, 202, 0xFF, 0xFF} + kByeOfTwo, true, {kSource}, {}},
        Case{"BrokenGoodbyeBehindAReport", kSr + Bytes{0x82, 203, 0, 1, 0, 0, 0, 5}, true, {kSource}, {}}),
    test::CaseName());

TEST(RtcpReaderFields, OfASenderReport) {
    RtcpContents contents;
    ASSERT_TRUE(ReadRtcp(kSr.data(), kSr.size(), contents));
    ASSERT_EQ(contents.reports.size(), 1U);
    EXPECT_EQ(contents.reports[0].SSRC, 0xA1B2C3D4U);
    EXPECT_EQ(contents.reports[0].NTP, 0xE0000001'80000002U);
    EXPECT_EQ(contents.reports[0].RTP_ts, 90'000U);
}

TEST(RtcpReaderFields, OfTheLastDatagramAreReplacedInTheSameMemory) {
    RtcpContents contents;
    const Bytes both = kSr + kByeOfTwo;
    ASSERT_TRUE(ReadRtcp(both.data(), both.size(), contents));
    const SenderReport* const memory = contents.reports.data();
    ASSERT_TRUE(ReadRtcp(kSrWithBlock.data(), kSrWithBlock.size(), contents));
    EXPECT_EQ(SourcesOf(contents), std::vector<std::uint32_t>{5});
    EXPECT_TRUE(contents.byes.empty());
    EXPECT_EQ(contents.reports.data(), memory);
    EXPECT_FALSE(ReadRtcp(nullptr, 0, contents));
    EXPECT_TRUE(contents.reports.empty());
}

}  // namespace
}  // namespace camclock::receiver
