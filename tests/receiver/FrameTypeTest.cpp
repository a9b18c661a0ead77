#include "receiver/FrameType.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Case {
    std::string name;
    Bytes payload;
    MediaPacket::Frametype expected;
    bool key = false;
};

void PrintTo(const Case& value, std::ostream* out) {
    *out << value.name;
}

void Expect(Codec codec, const Case& expected) {
    const FrameKind kind = FrameKindOf(codec, expected.payload.data(), expected.payload.size());
    EXPECT_EQ(kind.type, expected.expected);
    EXPECT_EQ(kind.key, expected.key);
}

class H264FrameType : public testing::TestWithParam<Case> {};

TEST_P(H264FrameType, IsReadFromThePacket) {
    Expect(Codec::kH264, GetParam());
}

// Slice headers begin with first_mb_in_slice and slice_type as ue(v): 1 codes 0, 010 1, 011 2, 00100 3, 00101
// 4, 00110 5, 00111 6, 0001000 7, 0001001 8, 0001010 9.
INSTANTIATE_TEST_SUITE_P(
    Packets, H264FrameType,
    testing::Values(
        Case{"Empty", {}, MediaPacket::kFrameUnknown}, Case{"HeaderOnly", {0x65}, MediaPacket::kFrameUnknown},
        Case{"IdrSlice", {0x65, 0x88}, MediaPacket::kFrameI, true},
        Case{"PSlice0", {0x41, 0b1100'0000}, MediaPacket::kFrameP},
        Case{"BSlice1", {0x01, 0b1010'0000}, MediaPacket::kFrameB},
        Case{"ISlice2", {0x41, 0b1011'0000}, MediaPacket::kFrameI},
        Case{"SpSlice3", {0x41, 0b1001'0000}, MediaPacket::kFrameP},
        Case{"SiSlice4", {0x41, 0b1001'0100}, MediaPacket::kFrameI},
        Case{"AllPSlices5", {0x41, 0b1001'1000}, MediaPacket::kFrameP},
        Case{"AllBSlices6", {0x01, 0b1001'1100}, MediaPacket::kFrameB},
        Case{"AllISlices7", {0x41, 0b1000'1000}, MediaPacket::kFrameI},
        Case{"SliceBehindTheFirstMacroblock", {0x41, 0b0101'1000}, MediaPacket::kFrameP},
        Case{"SliceHeaderOfZerosOnly", {0x41, 0, 0, 0, 0}, MediaPacket::kFrameUnknown},
        Case{"SliceHeaderThatEndsInACode", {0x41, 0b1000'0001}, MediaPacket::kFrameUnknown},
        Case{"SequenceParameterSet", {0x67, 0x42, 0x00, 0x1E}, MediaPacket::kFrameUnknown},
        Case{"Sei", {0x06, 0x05, 0x04}, MediaPacket::kFrameUnknown},
        Case{"StapAWithParameterSetsAndIdr",
             {24, 0, 2, 0x67, 0x42, 0, 2, 0x68, 0xCE, 0, 2, 0x65, 0x88},
             MediaPacket::kFrameI,
             true},
        Case{"StapAWithParameterSetsOnly",
             {24, 0, 2, 0x67, 0x42, 0, 2, 0x68, 0xCE},
             MediaPacket::kFrameUnknown},
        Case{"StapASizeBeyondTheEnd", {24, 0xFF, 0xFF, 0x65, 0x88}, MediaPacket::kFrameUnknown},
        Case{"StapASizeOfZero", {24, 0, 0, 0, 2, 0x65, 0x88}, MediaPacket::kFrameUnknown},
        Case{"StapAOfOneByte", {24}, MediaPacket::kFrameUnknown},
        Case{"StapBBehindItsOrderNumber", {25, 0x12, 0x34, 0, 2, 0x41, 0xC0}, MediaPacket::kFrameP},
        Case{"FuAStartOfIdr", {0x7C, 0x85, 0x88}, MediaPacket::kFrameI, true},
        Case{"FuAStartOfPSlice", {0x5C, 0x81, 0xC0}, MediaPacket::kFrameP},
        Case{"FuAMiddle", {0x7C, 0x05, 0x88}, MediaPacket::kFrameUnknown},
        Case{"FuAEnd", {0x7C, 0x45, 0x88}, MediaPacket::kFrameUnknown},
        Case{"FuAOfTwoBytes", {0x7C, 0x85}, MediaPacket::kFrameUnknown},
        Case{"FuBStartBehindItsOrderNumber", {0x5D, 0x81, 0x12, 0x34, 0xC0}, MediaPacket::kFrameP},
        Case{"Mtap16BehindParameterSets",
             {26, 9, 9, 0, 2, 1, 2, 2, 0x67, 0x42, 0, 2, 1, 2, 2, 0x65, 0x88},
             MediaPacket::kFrameI,
             true},
        Case{"PartitionA", {0x42, 0b1100'0000}, MediaPacket::kFrameP},
        Case{"PartitionB", {0x43, 0b1100'0000}, MediaPacket::kFrameUnknown},
        Case{"Reserved31", {0x1F, 0xFF, 0xFF}, MediaPacket::kFrameUnknown}),
    test::CaseName());

class Mpeg4FrameType : public testing::TestWithParam<Case> {};

TEST_P(Mpeg4FrameType, IsReadFromThePacket) {
    Expect(Codec::kMpeg4Visual, GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Packets, Mpeg4FrameType,
    testing::Values(Case{"Empty", {}, MediaPacket::kFrameUnknown},
                    Case{"IntraVop", {0, 0, 1, 0xB6, 0x10}, MediaPacket::kFrameI, true},
                    Case{"PredictedVop", {0, 0, 1, 0xB6, 0x50}, MediaPacket::kFrameP},
                    Case{"BidirectionalVop", {0, 0, 1, 0xB6, 0x90}, MediaPacket::kFrameB},
                    Case{"SpriteVop", {0, 0, 1, 0xB6, 0xD0}, MediaPacket::kFrameSprite},
                    Case{"VopBehindAGroupHeader",
                         {0, 0, 1, 0xB3, 0x00, 0x10, 0x07, 0, 0, 1, 0xB6, 0x10},
                         MediaPacket::kFrameI,
                         true},
                    Case{"IntraVopBehindTheConfiguration",
                         {0, 0, 1, 0xB0, 1,    0, 0,    1,    0xB5, 0x89, 0x13, 0,    0,   1,
                          0, 0, 0, 1,    0x20, 0, 0xC4, 0x8D, 0,    0,    1,    0xB6, 0x10},
                         MediaPacket::kFrameI,
                         true},
                    Case{"VopInTheMiddle", {0x55, 0, 0, 1, 0xB6, 0x10}, MediaPacket::kFrameUnknown},
                    Case{"StartCodeAtTheEnd", {0, 0, 1, 0xB6}, MediaPacket::kFrameUnknown},
                    Case{"MiddleOfAFrame", {0x12, 0x34, 0x56, 0x78, 0x9A}, MediaPacket::kFrameUnknown}),
    test::CaseName());

class H265FrameType : public testing::TestWithParam<Case> {};

TEST_P(H265FrameType, IsReadFromThePacket) {
    Expect(Codec::kH265, GetParam());
}

// A slice segment header begins with first_slice_segment_in_pic_flag, slice_pic_parameter_set_id ue(v) and
// slice_type ue(v): 1 codes 0 (B), 010 1 (P), 011 2 (I).
INSTANTIATE_TEST_SUITE_P(
    Packets, H265FrameType,
    testing::Values(Case{"Empty", {}, MediaPacket::kFrameUnknown},
                    Case{"HeaderOnly", {0x26, 1}, MediaPacket::kFrameUnknown},
                    Case{"TrailingP", {0x02, 1, 0b1101'0000}, MediaPacket::kFrameP},
                    Case{"TrailingB", {0x02, 1, 0b1110'0000}, MediaPacket::kFrameB},
                    Case{"TrailingI", {0x02, 1, 0b1101'1000}, MediaPacket::kFrameI},
                    Case{"TrailingWithParameterSet1", {0x00, 1, 0b1010'0100}, MediaPacket::kFrameP},
                    Case{"SliceType3", {0x02, 1, 0b1100'1000}, MediaPacket::kFrameUnknown},
                    Case{"LaterSliceSegment", {0x02, 1, 0b0101'0000}, MediaPacket::kFrameUnknown},
                    Case{"SkippedLeading", {0x12, 1, 0b1110'0000}, MediaPacket::kFrameB},  // RASL_R, 9
                    Case{"Reserved10", {0x14, 1, 0b1110'0000}, MediaPacket::kFrameUnknown},
                    Case{"BrokenLinkAccess16", {0x20, 1, 0xA0}, MediaPacket::kFrameI, true},
                    Case{"IdrWithLeading19", {0x26, 1, 0xA0}, MediaPacket::kFrameI, true},
                    Case{"IdrWithoutLeading20", {0x28, 1, 0xAF}, MediaPacket::kFrameI, true},
                    Case{"CleanRandomAccess21", {0x2A, 1, 0xA0}, MediaPacket::kFrameI, true},
                    Case{"LaterSegmentOfAnIdr", {0x26, 1, 0x20}, MediaPacket::kFrameI, true},
                    Case{"ReservedIrap22", {0x2C, 1, 0xA0}, MediaPacket::kFrameUnknown},
                    Case{"SequenceParameterSet", {0x42, 1, 1}, MediaPacket::kFrameUnknown},
                    Case{"AggregateWithParameterSetsAndIdr",
                         {0x60, 1, 0, 3, 0x42, 1, 1, 0, 3, 0x44, 1, 0xC1, 0, 3, 0x26, 1, 0xAF},
                         MediaPacket::kFrameI,
                         true},
                    Case{"FuStartOfIdr", {0x62, 1, 0x93, 0xAF}, MediaPacket::kFrameI, true},
                    Case{"FuStartOfP", {0x62, 1, 0x81, 0b1101'0000}, MediaPacket::kFrameP},
                    Case{"FuMiddle", {0x62, 1, 0x13, 0xAF}, MediaPacket::kFrameUnknown},
                    Case{"FuOfThreeBytes", {0x62, 1, 0x93}, MediaPacket::kFrameUnknown}),
    test::CaseName());

TEST(FrameKind, EveryJpegIsAKeyFrame) {
    const Bytes payload{0, 0, 0, 0, 1, 80, 40, 30};
    EXPECT_EQ(FrameKindOf(Codec::kMjpeg, payload.data(), payload.size()).type, MediaPacket::kFrameI);
    EXPECT_TRUE(FrameKindOf(Codec::kMjpeg, payload.data(), payload.size()).key);
}

TEST(FrameKind, OfOtherCodecsIsUnknown) {
    const Bytes payload{0x65, 0x88};
    EXPECT_EQ(FrameKindOf(Codec::kOther, payload.data(), payload.size()).type, MediaPacket::kFrameUnknown);
    EXPECT_FALSE(FrameKindOf(Codec::kOther, payload.data(), payload.size()).key);
}

TEST(FrameKind, OfNoBytesIsUnknown) {
    for (const Codec codec : {Codec::kH264, Codec::kH265, Codec::kMpeg4Visual, Codec::kMjpeg, Codec::kOther})
        EXPECT_EQ(FrameKindOf(codec, nullptr, 0).type, MediaPacket::kFrameUnknown);
}

}  // namespace
}  // namespace camclock::receiver
