#include "receiver/PictureHeaders.h"

#include "support/Base64.h"
#include "support/BitWriter.h"
#include "support/H264Headers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

using camclock::testing::BitWriter;
using camclock::testing::EncodeBase64;
using camclock::testing::FullHdSps;
using camclock::testing::PpsFields;
using camclock::testing::SpsFields;
using Bytes = std::vector<std::uint8_t>;

// Headers by FFmpeg's encoder: 176 x 144 at 25 frames per second.
constexpr const char* kConfig = "000001b001000001b58913000001000000012000c48d8800cd0584121443";

Bytes FromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string Sprop(const SpsFields& sps) {
    return EncodeBase64(sps.Bytes()) + "," + EncodeBase64(PpsFields().Bytes());
}

std::string TextOf(const PictureHeaders& headers) {
    const auto picture = headers.Picture();
    return picture ? PictureText(*picture) : "";
}

void Take(PictureHeaders& headers, const Bytes& payload) {
    headers.Take(payload.data(), payload.size());
}

Bytes Aggregate(Bytes head, const std::vector<Bytes>& units) {
    for (const Bytes& unit : units) {
        head.push_back(static_cast<std::uint8_t>(unit.size() >> 8U));
        head.push_back(static_cast<std::uint8_t>(unit.size()));
        head.insert(head.end(), unit.begin(), unit.end());
    }
    return head;
}

TEST(PictureHeaders, DescriptionTellsSizeAndPixelFormat) {
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kH264, Sprop(FullHdSps()))), "1920x1080 4:2:0");
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kMpeg4Visual, kConfig)), "176x144 4:2:0");
}

TEST(PictureHeaders, BaselineIsNotTakenForMonochrome) {
    for (const std::uint32_t profile : {66U, 77U, 88U}) {
        SpsFields sps;
        sps.profile_idc = profile;
        EXPECT_EQ(TextOf(PictureHeaders(Codec::kH264, Sprop(sps))), "320x240 4:2:0") << profile;
    }
    SpsFields monochrome = FullHdSps();
    monochrome.chroma_format_idc = 0;
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kH264, Sprop(monochrome))), "1920x1080 monochrome");
}

TEST(PictureHeaders, WithoutDescriptionTheStreamTells) {
    const Bytes sps = FullHdSps().Bytes();
    const Bytes pps = PpsFields().Bytes();
    for (const Bytes& payload : {sps, Aggregate({24}, {pps, sps}), Aggregate({25, 0, 1}, {sps, pps})}) {
        PictureHeaders headers(Codec::kH264, "");
        EXPECT_EQ(TextOf(headers), "");
        Take(headers, {0x41, 0x9A});
        EXPECT_EQ(TextOf(headers), "");
        Take(headers, payload);
        EXPECT_EQ(TextOf(headers), "1920x1080 4:2:0");
    }
    PictureHeaders mpeg4(Codec::kMpeg4Visual, "");
    Take(mpeg4, FromHex("000001b650f02385"));
    EXPECT_EQ(TextOf(mpeg4), "");
    Take(mpeg4, FromHex(std::string(kConfig) + "000001b300100700000001b61060d182d5b7f1b6"));
    EXPECT_EQ(TextOf(mpeg4), "176x144 4:2:0");
}

TEST(PictureHeaders, DescriptionGoesBeforeTheStream) {
    PictureHeaders headers(Codec::kH264, Sprop(FullHdSps()));
    Take(headers, SpsFields().Bytes());
    EXPECT_EQ(TextOf(headers), "1920x1080 4:2:0");
}

TEST(PictureHeaders, FallbackCountsUntilAHeaderTells) {
    // A layer without identifier that ends with its header: the parser gives no size.
    BitWriter w;
    w.U(32, 0x1B0).U(8, 1).U(32, 0x1B5).Flag(false).U(4, 1).Flag(false).NextStartCode().U(32, 0x100);
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(false).U(4, 1).Flag(false).U(2, 0).Flag(true).U(16, 1000).Flag(
        true);
    w.Flag(false)
        .Flag(true)
        .U(13, 352)
        .Flag(true)
        .U(13, 288)
        .Flag(true)
        .Bits("0 1 0 0 0 1 1 0 0")
        .NextStartCode();
    std::string config;
    for (const unsigned char byte : w.Bytes()) {
        config += "0123456789ABCDEF"[byte >> 4U];
        config += "0123456789ABCDEF"[byte & 0xFU];
    }
    PictureHeaders headers(Codec::kMpeg4Visual, config);
    EXPECT_EQ(TextOf(headers), "");
    headers.TakeFallback(352, 288);
    EXPECT_EQ(TextOf(headers), "352x288 4:2:0");
    Take(headers, FromHex(kConfig));
    EXPECT_EQ(TextOf(headers), "176x144 4:2:0");

    PictureHeaders h264(Codec::kH264, "");
    h264.TakeFallback(800, 600);
    EXPECT_EQ(TextOf(h264), "800x600");
}

TEST(PictureHeaders, SizeBesideTheHeaders) {
    ASSERT_TRUE(SizeOfText("640-480"));
    EXPECT_EQ(PictureText(*SizeOfText("640-480")), "640x480");
    EXPECT_EQ(PictureText(*SizeOfText("1920,1080")), "1920x1080");
    for (const char* text :
         {"", "640", "640-", "-480", "640x480", "0-480", "640-0", "640-99999999999", "70000-1"})
        EXPECT_FALSE(SizeOfText(text)) << text;
}

// By libx265: 1,920 x 1,080, of which 8 lines are cropped, and 642 x 482 of 4:2:2 with 10 bits.
constexpr const char* kHevcSps =
    "420101016000000300900000030000030078a003c08010e596566924caf0168080000003008000000c84";
constexpr const char* kHevcSps422 =
    "4201010408000003009d0800000300005ab0051201e9c93b65959a4932bc05a02000000300200000030321";
constexpr const char* kHevcVps = "40010c01ffff016000000300900000030000030078959809";

TEST(PictureHeaders, H265ParameterSets) {
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kH265, EncodeBase64(FromHex(kHevcVps)) + "," +
                                                      EncodeBase64(FromHex(kHevcSps)) + ",RAHBcrRiQA==")),
              "1920x1080 4:2:0");
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kH265, EncodeBase64(FromHex(kHevcSps422)))), "642x482 4:2:2");
    EXPECT_EQ(TextOf(PictureHeaders(Codec::kH265, "!,=,QAEM")), "");
    for (const Bytes& payload :
         {FromHex(kHevcSps), Aggregate({0x60, 1}, {FromHex(kHevcVps), FromHex(kHevcSps)})}) {
        PictureHeaders headers(Codec::kH265, "");
        Take(headers, payload);
        EXPECT_EQ(TextOf(headers), "1920x1080 4:2:0");
    }
}

/// A sequence parameter set of three sub-layers, the second of which has a profile and a level of its own.
Bytes HevcSpsWithSubLayers(bool subLayerProfile, bool subLayerLevel, std::uint32_t chroma_format_idc) {
    BitWriter w;
    w.U(16, 0x4201).U(4, 0).U(3, 2).Flag(true);
    for (int i = 0; i < 12; ++i)
        w.U(8, 0x55);  // general profile, tier and level
    w.U(2, 0).Flag(subLayerProfile).Flag(subLayerLevel).U(12, 0);
    w.U(subLayerProfile ? 64 : 0, 0x5555'5555'5555'5555).U(subLayerProfile ? 24 : 0, 0x55'5555);
    w.U(subLayerLevel ? 8 : 0, 0x55);
    w.Ue(0).Ue(chroma_format_idc);
    if (chroma_format_idc == 3)
        w.Flag(false);
    w.Ue(648).Ue(488).Flag(true).Ue(1).Ue(2).Ue(3).Ue(1).Ue(0).Ue(0).TrailingBits();
    return w.Bytes();
}

TEST(PictureHeaders, H265SubLayersAndConformanceWindow) {
    for (const bool profile : {false, true})
        for (const bool level : {false, true}) {
            PictureHeaders headers(Codec::kH265, "");
            Take(headers, HevcSpsWithSubLayers(profile, level, 1));
            EXPECT_EQ(TextOf(headers), "642x480 4:2:0") << profile << level;
        }
    const char* const expected[] = {"645x484 monochrome", "642x480 4:2:0", "642x484 4:2:2", "645x484 4:4:4"};
    for (std::uint32_t chroma = 0; chroma < 4; ++chroma) {
        PictureHeaders headers(Codec::kH265, "");
        Take(headers, HevcSpsWithSubLayers(false, false, chroma));
        EXPECT_EQ(TextOf(headers), expected[chroma]);
    }
    PictureHeaders headers(Codec::kH265, "");
    Take(headers, HevcSpsWithSubLayers(false, false, 4));  // there is no such format
    EXPECT_EQ(TextOf(headers), "");
}

TEST(PictureHeaders, H265SetCutShortTellsNothing) {
    const Bytes sps = FromHex(kHevcSps);
    constexpr std::size_t kUpToTheWindow = 24;
    for (std::size_t size = 0; size < kUpToTheWindow; ++size) {
        PictureHeaders headers(Codec::kH265, "");
        headers.Take(Bytes(sps.begin(), sps.begin() + static_cast<std::ptrdiff_t>(size)).data(), size);
        EXPECT_EQ(TextOf(headers), "") << size;
    }
}

TEST(PictureHeaders, JpegPacketsTellTheirSize) {
    PictureHeaders headers(Codec::kMjpeg, "");
    Take(headers, {0, 0, 0, 0, 1, 80, 40});
    Take(headers, {0, 0, 0, 0, 1, 80, 0, 30});  // too wide for the field
    Take(headers, {0, 0, 0, 0, 1, 80, 40, 0});
    EXPECT_EQ(TextOf(headers), "");
    Take(headers, {0, 0, 0, 0, 65, 80, 40, 30});
    EXPECT_EQ(TextOf(headers), "320x240 4:2:0");
    PictureHeaders wide(Codec::kMjpeg, "");
    Take(wide, {0, 0, 0, 0, 0, 80, 80, 60, 1});
    EXPECT_EQ(TextOf(wide), "640x480 4:2:2");
    PictureHeaders own(Codec::kMjpeg, "");
    Take(own, {0, 0, 0, 0, 2, 80, 80, 60});
    EXPECT_EQ(TextOf(own), "640x480");
}

TEST(PictureHeaders, AnyPayloadIsTaken) {
    for (const Codec codec : {Codec::kH264, Codec::kH265, Codec::kMpeg4Visual, Codec::kOther}) {
        PictureHeaders headers(codec, "\xFF,,=A");
        headers.Take(nullptr, 0);
        for (const Bytes& payload :
             {Bytes{24}, Bytes{25}, Bytes{25, 0}, Bytes{24, 0xFF, 0xFF, 0x67}, Bytes{24, 0, 0}, Bytes{0x67},
              Bytes{0, 0, 1}, Bytes{0, 0, 1, 0xB0}, Bytes(5'000, 0)}) {
            Take(headers, payload);
            EXPECT_EQ(TextOf(headers), "");
        }
    }
}

}  // namespace
}  // namespace camclock::receiver
