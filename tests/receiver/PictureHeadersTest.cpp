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

// Headers by FFmpeg's encoder: 176 x 144 at 25, and 320 x 240 at 16 frames per second.
constexpr const char* kConfig = "000001b001000001b58913000001000000012000c48d8800cd0584121443";
constexpr const char* kConfig16 = "000001b001000001b58913000001000000012000c48d8800850a041e1443";

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

MediaPacket::Frametype TypeOf(PictureHeaders& headers, const Bytes& payload) {
    return headers.TypeOf(payload.data(), payload.size());
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

TEST(PictureHeaders, Mpeg4FrameTypesBehindAGroupOfVopHeader) {
    PictureHeaders headers(Codec::kMpeg4Visual, kConfig);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b300100700000001b61060d182d5b7f1b6")), MediaPacket::kFrameI);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b650f02385161d0805")), MediaPacket::kFrameP);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b690e065274e9d3a7f")), MediaPacket::kFrameB);
    EXPECT_EQ(TypeOf(headers, FromHex("5df1ffffab00")), MediaPacket::kFrameUnknown);
    EXPECT_EQ(TextOf(headers), "176x144 4:2:0");
}

TEST(PictureHeaders, Mpeg4FrameTypesOfAPowerOfTwoRate) {
    PictureHeaders headers(Codec::kMpeg4Visual, kConfig16);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b610c16305336fe36d")), MediaPacket::kFrameI);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b651e047c28b0fa312")), MediaPacket::kFrameP);
    EXPECT_EQ(TypeOf(headers, FromHex("000001b652c047d0f07151e6")), MediaPacket::kFrameP);
}

TEST(PictureHeaders, H264FrameTypes) {
    PictureHeaders headers(Codec::kH264, "");
    EXPECT_EQ(TypeOf(headers, {0x65, 0x88}), MediaPacket::kFrameI);
    EXPECT_EQ(TypeOf(headers, {0x41, 0xC0}), MediaPacket::kFrameP);
}

TEST(PictureHeaders, AnyPayloadIsTaken) {
    for (const Codec codec : {Codec::kH264, Codec::kMpeg4Visual}) {
        PictureHeaders headers(codec, "\xFF,,=A");
        headers.Take(nullptr, 0);
        EXPECT_EQ(headers.TypeOf(nullptr, 0), MediaPacket::kFrameUnknown);
        for (const Bytes& payload :
             {Bytes{24}, Bytes{25}, Bytes{25, 0}, Bytes{24, 0xFF, 0xFF, 0x67}, Bytes{24, 0, 0}, Bytes{0x67},
              Bytes{0, 0, 1}, Bytes{0, 0, 1, 0xB0}, Bytes(5'000, 0)}) {
            Take(headers, payload);
            TypeOf(headers, payload);
            EXPECT_EQ(TextOf(headers), "");
        }
    }
}

}  // namespace
}  // namespace camclock::receiver
