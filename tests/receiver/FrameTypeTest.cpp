#include "receiver/FrameType.h"

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
};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

void PrintTo(const Case& value, std::ostream* out) {
    *out << value.name;
}

class H264FrameType : public testing::TestWithParam<Case> {};

TEST_P(H264FrameType, IsReadFromThePacket) {
    const Bytes& payload = GetParam().payload;
    EXPECT_EQ(FrameTypeOf(Codec::kH264, payload.data(), payload.size()), GetParam().expected);
}

// Slice headers begin with first_mb_in_slice and slice_type as ue(v): 1 codes 0, 010 1, 011 2, 00100 3, 00101
// 4, 00110 5, 00111 6, 0001000 7, 0001001 8, 0001010 9.
INSTANTIATE_TEST_SUITE_P(
    Packets, H264FrameType,
    testing::Values(
        Case{"Empty", {}, MediaPacket::kFrameUnknown}, Case{"HeaderOnly", {0x65}, MediaPacket::kFrameUnknown},
        Case{"IdrSlice", {0x65, 0x88}, MediaPacket::kFrameI},
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
             MediaPacket::kFrameI},
        Case{"StapAWithParameterSetsOnly",
             {24, 0, 2, 0x67, 0x42, 0, 2, 0x68, 0xCE},
             MediaPacket::kFrameUnknown},
        Case{"StapASizeBeyondTheEnd", {24, 0xFF, 0xFF, 0x65, 0x88}, MediaPacket::kFrameUnknown},
        Case{"StapASizeOfZero", {24, 0, 0, 0, 2, 0x65, 0x88}, MediaPacket::kFrameUnknown},
        Case{"StapAOfOneByte", {24}, MediaPacket::kFrameUnknown},
        Case{"StapBBehindItsOrderNumber", {25, 0x12, 0x34, 0, 2, 0x41, 0xC0}, MediaPacket::kFrameP},
        Case{"FuAStartOfIdr", {0x7C, 0x85, 0x88}, MediaPacket::kFrameI},
        Case{"FuAStartOfPSlice", {0x5C, 0x81, 0xC0}, MediaPacket::kFrameP},
        Case{"FuAMiddle", {0x7C, 0x05, 0x88}, MediaPacket::kFrameUnknown},
        Case{"FuAEnd", {0x7C, 0x45, 0x88}, MediaPacket::kFrameUnknown},
        Case{"FuAOfTwoBytes", {0x7C, 0x85}, MediaPacket::kFrameUnknown},
        Case{"FuBStartBehindItsOrderNumber", {0x5D, 0x81, 0x12, 0x34, 0xC0}, MediaPacket::kFrameP},
        Case{"Reserved31", {0x1F, 0xFF, 0xFF}, MediaPacket::kFrameUnknown}),
    NameOf);

class Mpeg4FrameType : public testing::TestWithParam<Case> {};

TEST_P(Mpeg4FrameType, IsReadFromThePacket) {
    const Bytes& payload = GetParam().payload;
    EXPECT_EQ(FrameTypeOf(Codec::kMpeg4Visual, payload.data(), payload.size()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, Mpeg4FrameType,
    testing::Values(Case{"Empty", {}, MediaPacket::kFrameUnknown},
                    Case{"IntraVop", {0, 0, 1, 0xB6, 0x10}, MediaPacket::kFrameI},
                    Case{"PredictedVop", {0, 0, 1, 0xB6, 0x50}, MediaPacket::kFrameP},
                    Case{"BidirectionalVop", {0, 0, 1, 0xB6, 0x90}, MediaPacket::kFrameB},
                    Case{"SpriteVop", {0, 0, 1, 0xB6, 0xD0}, MediaPacket::kFrameSprite},
                    Case{"VopBehindAGroupHeader",
                         {0, 0, 1, 0xB3, 0x00, 0x10, 0x07, 0, 0, 1, 0xB6, 0x10},
                         MediaPacket::kFrameI},
                    Case{"StartCodeAtTheEnd", {0, 0, 1, 0xB6}, MediaPacket::kFrameUnknown},
                    Case{"MiddleOfAFrame", {0x12, 0x34, 0x56, 0x78, 0x9A}, MediaPacket::kFrameUnknown}),
    NameOf);

}  // namespace
}  // namespace camclock::receiver
