// Headers of real encoders beside what ffprobe 5.1.9 says of the same streams: x264 (core 164), FFmpeg's own
// MPEG-4 encoder and Xvid, each run through ffmpeg 5.1.9 on its generated test picture,
//
//     ffmpeg -f lavfi -i testsrc=size=SIZE:rate=RATE -frames:v 8 -c:v ENCODER OPTIONS out.h264
//
// with the options that stand in each row. Of the streams only the headers were kept.
#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include "support/Base64.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace camclock {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes FromHex(std::string_view hex) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(digit(hex[i]) * 16 + digit(hex[i + 1])));
    }
    return bytes;
}

// ---- H.264

struct H264Case {
    const char* name;
    const char* options;  // of ffmpeg with libx264
    const char* sps;
    const char* pps;
    unsigned int ffprobeWidth;
    unsigned int ffprobeHeight;
    const char* ffprobePixels;
    unsigned int ffprobeLevel;
    // What this parser says; where it differs from the columns before, docs/departures.md says why.
    unsigned int width;
    unsigned int height;
    MediaPacket::PixelFormat format;
};

std::ostream& operator<<(std::ostream& out, const H264Case& c) {
    return out << c.name << " (" << c.options << ')';
}

// The pixel format of the profiles without chroma_format_idc is 1, monochrome: a departure that all of them
// share. The sizes differ for cropped pictures coded in fields (the vertical crop unit is 4 there), of 4:2:2
// (it is 1), and for profile 244, whose chroma_format_idc is not known of.
const H264Case kH264[] = {
    {"BaselineQvga", "-s 320x240 -pix_fmt yuv420p -profile:v baseline",
     "6742c00dd90141fb011000000300100000030320f142a480", "68cb83cb20", 320, 240, "yuv420p", 13, 320, 240,
     MediaPacket::kPixelMonochrome},
    {"BaselineQcif", "-s 176x144 -pix_fmt yuv420p -profile:v baseline -level 1.1",
     "6742c00bd902c4ec0440000003004000000c83c50a92", "68cb83cb20", 176, 144, "yuv420p", 11, 176, 144,
     MediaPacket::kPixelMonochrome},
    {"MainVga", "-s 640x480 -pix_fmt yuv420p -profile:v main",
     "674d401eeca0501ed808800000030080000019078b16cb", "68ebe3cb20", 640, 480, "yuv420p", 30, 640, 480,
     MediaPacket::kPixelMonochrome},
    {"MainCropped", "-s 854x482 -pix_fmt yuv420p -profile:v main",
     "6742c01fda0360ff9a23011000000300100000030320f1832a", "68ce0fc8", 854, 482, "yuv420p", 31, 854, 482,
     MediaPacket::kPixelMonochrome},
    {"High720p", "-s 1280x720 -pix_fmt yuv420p -profile:v high",
     "6764001facd9405005bb011000000300100000030320f1831960", "68ebe3cb22c0", 1280, 720, "yuv420p", 31, 1280,
     720, MediaPacket::kPixel420},
    {"High1080p", "-s 1920x1080 -pix_fmt yuv420p -profile:v high",
     "67640028acd940780227e5c044000003000400000300c83c60c658", "68ebe3cb22c0", 1920, 1080, "yuv420p", 40,
     1920, 1080, MediaPacket::kPixel420},
    {"High1080pHrd",
     "-s 1920x1080 -pix_fmt yuv420p -profile:v high -b:v 4M -maxrate 4M -bufsize 4M -x264-params nal-hrd=cbr",
     "67640028acd940780227e5c044000003000400000300c9920003d090007a13930c01e30632c0", "68ebecb22c", 1920, 1080,
     "yuv420p", 40, 1920, 1080, MediaPacket::kPixel420},
    {"High1080i", "-s 1920x1080 -pix_fmt yuv420p -profile:v high -x264-params interlaced=1:tff=1",
     "67640028acd94078044fde0220000003002000000643e2c5b2c0", "68fba3cb22c0", 1920, 1080, "yuv420p", 40, 1920,
     1084, MediaPacket::kPixel420},
    {"Main576i", "-s 720x576 -pix_fmt yuv420p -profile:v main -x264-params interlaced=1:bff=1",
     "674d401eeca05a126c0440000003004000000c87c50a6580", "68fba3cb20", 720, 576, "yuv420p", 30, 720, 576,
     MediaPacket::kPixelMonochrome},
    {"High1080FakeInterlaced", "-s 1920x1080 -pix_fmt yuv420p -profile:v high -x264-params fake-interlaced=1",
     "67640028acd940780447de0220000003002000000641e30632c0", "68ebe3cb22c0", 1920, 1080, "yuv420p", 40, 1920,
     1084, MediaPacket::kPixel420},
    {"HighScalingMatrices", "-s 1280x720 -pix_fmt yuv420p -profile:v high -x264-params cqm=jvt",
     "6764001facd9405005bb011000000300100000030320f1831960", "68ebe3cb3002c0", 1280, 720, "yuv420p", 31, 1280,
     720, MediaPacket::kPixel420},
    {"HighOwnScalingMatrix",
     "-s 1280x720 -pix_fmt yuv420p -profile:v high -x264-params cqm4=16,17,18,19,17,18,19,20,18,19,20,21,19,20,21,22",
     "6764001facd9405005bb011000000300100000030320f1831960", "68ebe3cb384156bad51082ad75aa210043080212c0",
     1280, 720, "yuv420p", 31, 1280, 720, MediaPacket::kPixel420},
    {"High4K", "-s 3840x2160 -pix_fmt yuv420p -profile:v high",
     "67640033acd9403c0043ec0440000003004000000c83c60c6580", "68ebe3cb22c0", 3840, 2160, "yuv420p", 51, 3840,
     2160, MediaPacket::kPixel420},
    {"HighPortrait", "-s 1080x1920 -pix_fmt yuv420p -profile:v high",
     "67640028acd9404403c797c044000003000400000300c83c60c658", "68ebe3cb22c0", 1080, 1920, "yuv420p", 40,
     1080, 1920, MediaPacket::kPixel420},
    {"High5Mp", "-s 2592x1944 -pix_fmt yuv420p -profile:v high",
     "67640032acd9402880f5f97011000003000100000300320f183196", "68ebe3cb22c0", 2592, 1944, "yuv420p", 50,
     2592, 1944, MediaPacket::kPixel420},
    {"HighOddSize", "-s 1366x766 -pix_fmt yuv420p -profile:v high",
     "67640020acd94056061e6ac044000003000400000300c83c60c658", "68ebe3cb22c0", 1366, 766, "yuv420p", 32, 1366,
     766, MediaPacket::kPixel420},
    {"HighGray", "-s 640x480 -pix_fmt gray -profile:v high",
     "6764001ef3650280f6c05b20000003002000000641e2c5b2c0", "68ebe3cb22c0", 640, 480, "yuvj420p", 30, 640, 480,
     MediaPacket::kPixelMonochrome},
    {"High10", "-s 1920x1080 -pix_fmt yuv420p10le -profile:v high10",
     "676e0028a6cd940780227e5c0440000003004000000c83c60c6580", "68ebe3cb22c0", 1920, 1080, "yuv420p10le", 40,
     1920, 1080, MediaPacket::kPixel420},
    {"High422", "-s 1920x1080 -pix_fmt yuv422p -profile:v high422",
     "677a0028bcd940780227e27011000003000100000300320f183196", "68ebe3cb22c0", 1920, 1080, "yuv422p", 40,
     1920, 1072, MediaPacket::kPixel422},
    {"High422Interlaced", "-s 1920x1080 -pix_fmt yuv422p10le -profile:v high422 -x264-params interlaced=1",
     "677a0028b6cd94078044fcb8088000000300800000190f8b16cb", "68fba3cb22c0", 1920, 1080, "yuv422p10le", 40,
     1920, 1080, MediaPacket::kPixel422},
    {"High444", "-s 1280x720 -pix_fmt yuv444p -profile:v high444",
     "67f4001f919b280a00b76022000003000200000300641e30632c", "68ebe3c44844", 1280, 720, "yuv444p", 31, 16,
     160, MediaPacket::kPixelMonochrome},
    {"HighBaselineBFrames",
     "-s 800x600 -pix_fmt yuv420p -profile:v high -bf 3 -refs 5 -x264-params b-pyramid=2",
     "6764001facd980c8137e5c0440000003004000000c83c60c6680", "68e978f2c8b0", 800, 600, "yuv420p", 31, 800,
     600, MediaPacket::kPixel420},
    {"MainTimed", "-s 640x360 -pix_fmt yuv420p -profile:v main -r 30000/1001",
     "674d401eeca05017fcb808800001f480007530078b16cb", "68ebe3cb20", 640, 360, "yuv420p", 30, 640, 360,
     MediaPacket::kPixelMonochrome},
    {"HighWeighted", "-s 640x360 -pix_fmt yuv420p -profile:v high -x264-params weightp=2:chroma-qp-offset=-3",
     "6764001eacd940a02ff97011000003000100000300320f162d96", "68ebe3c5c85c", 640, 360, "yuv420p", 30, 640,
     360, MediaPacket::kPixel420},
    {"HighOpenMatrix8x8",
     "-s 720x480 -pix_fmt yuv420p -profile:v high -x264-params cqm8=16,18,20,22,24,26,28,30,18,20,22,24,26,28,30,32,20,22,24,26,28,30,32,34,22,24,26,28,30,32,34,36,24,26,28,30,32,34,36,38,26,28,30,32,34,36,38,40,28,30,32,34,36,38,40,42,30,32,34,36,38,40,42,44",
     "6764001eacd940b43db011000003000100000300320f162d96",
     "68ebe3cb3840109080212102499393c9f27e4fe4fc9f27939324908124c9c9e4f93f27f27e4f93c9c99242c0", 720, 480,
     "yuv420p", 30, 720, 480, MediaPacket::kPixel420},
};

class EncoderH264 : public ::testing::TestWithParam<H264Case> {};

TEST_P(EncoderH264, ParameterSetsGiveSizeAndPixelFormat) {
    const H264Case& c = GetParam();
    std::string sprops = testing::EncodeBase64(FromHex(c.sps)) + "," + testing::EncodeBase64(FromHex(c.pps));
    ParameterSetParser parser;
    parser.SetSpropsString(sprops);
    EXPECT_TRUE(parser.GetSPS().valid);
    EXPECT_TRUE(parser.GetPPS().valid);
    unsigned int width = 0;
    unsigned int height = 0;
    parser.GetImageSize(width, height);
    EXPECT_EQ(width, c.width);
    EXPECT_EQ(height, c.height);
    EXPECT_EQ(parser.GetPixelFormat(), c.format);
    EXPECT_EQ(parser.GetSPS().level_idc, c.ffprobeLevel);

    // As raw NAL units too.
    Bytes sps = FromHex(c.sps);
    ParameterSetParser raw;
    raw.SetSPSArray(sps.data(), static_cast<unsigned int>(sps.size()));
    EXPECT_TRUE(raw.GetSPS().valid);
    EXPECT_EQ(raw.GetPixelFormat(), c.format);
}

TEST_P(EncoderH264, AgreesWithFfprobeButForTheDepartures) {
    const H264Case& c = GetParam();
    Bytes sps = FromHex(c.sps);
    ParameterSetParser parser;
    parser.SetSPSArray(sps.data(), static_cast<unsigned int>(sps.size()));
    const SPSset& s = parser.GetSPS();
    const bool carriesChroma = s.profile_idc == 100 || s.profile_idc == 110 || s.profile_idc == 122;
    const std::string_view pixels = c.ffprobePixels;
    const std::string_view chroma = pixels.substr(0, 7) == "yuvj420" ? "yuv420p" : pixels.substr(0, 7);
    const bool cropped = s.frame_cropping_flag != 0;
    // The rows below are all the standard's reading leaves for a difference.
    const bool sizeMayDiffer =
        s.profile_idc == 244 || (cropped && (s.frame_mbs_only_flag == 0 || chroma != "yuv420p"));
    if (!sizeMayDiffer) {
        EXPECT_EQ(c.width, c.ffprobeWidth);
        EXPECT_EQ(c.height, c.ffprobeHeight);
    }
    if (carriesChroma && s.chroma_format_idc != 0) {
        EXPECT_EQ(c.format, chroma == "yuv422p" ? MediaPacket::kPixel422 : MediaPacket::kPixel420);
    } else if (s.profile_idc != 100) {
        EXPECT_EQ(c.format, MediaPacket::kPixelMonochrome);
    }
}

std::string NameOf(const ::testing::TestParamInfo<H264Case>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(X264, EncoderH264, ::testing::ValuesIn(kH264), NameOf);

// ---- MPEG-4 Visual

struct Mpeg4Case {
    const char* name;
    const char* encoder;
    const char* options;
    const char* config;             // up to the first frame
    std::vector<const char*> vops;  // the first bytes of the frames, from the VOP start code on
    const char* ffprobeTypes;       // of these frames; N: a frame that is not coded, which ffprobe drops
    unsigned int ffprobeWidth;
    unsigned int ffprobeHeight;
    bool typesAreRead;  // false: the time increments have the width of a power of two, see docs/departures.md
};

std::ostream& operator<<(std::ostream& out, const Mpeg4Case& c) {
    return out << c.name << " (" << c.encoder << ' ' << c.options << ')';
}

const Mpeg4Case kMpeg4[] = {
    {"SimpleQcif",
     "mpeg4",
     "-s 176x144 -r 25",
     "000001b001000001b58913000001000000012000c48d8800cd0584121443000001b24c61766335392e33372e313030",
     {"000001b6106091823db7eca3", "000001b650f02385161d0805", "000001b65160238db070a458"},
     "IPP",
     176,
     144,
     true},
    {"SimpleVga",
     "mpeg4",
     "-s 640x480 -r 25",
     "000001b001000001b58913000001000000012000c48d8800cd14043c1443000001b24c61766335392e33372e313030",
     {"000001b61060d182d5b7f1b6", "000001b650f023ff0ada7ef8", "000001b6516023ff1fa00945"},
     "IPP",
     640,
     480,
     true},
    {"Simple1080p",
     "mpeg4",
     "-s 1920x1080 -r 30",
     "000001b001000001b58913000001000000012000c48d8800f53c04871443000001b24c61766335392e33372e313030",
     {"000001b61060f182fdb7f1b6", "000001b650f02217dce0bee7", "000001b6516023ffffffad83"},
     "IPP",
     1920,
     1080,
     true},
    {"SimpleNtscRate",
     "mpeg4",
     "-s 720x480 -r 30000/1001",
     "000001b001000001b58913000001000000012000c48d8ba98516843c1443000001b24c61766335392e33372e313030",
     {"000001b61000183460b56dfc", "000001b6507d3c08fd5f5a7e", "000001b650fa5808ffe15707"},
     "IPP",
     720,
     480,
     true},
    {"SimplePowerOfTwoRate",
     "mpeg4",
     "-s 320x240 -r 16",
     "000001b001000001b58913000001000000012000c48d8800850a041e1443000001b24c61766335392e33372e313030",
     {"000001b610c16305336fe36d", "000001b651e047c28b0fa312", "000001b652c047d0f07151e6"},
     "IPP",
     320,
     240,
     false},
    {"SimpleOddRate",
     "mpeg4",
     "-s 352x288 -r 15",
     "000001b001000001b58913000001000000012000c48d88007d0b04241443000001b24c61766335392e33372e313030",
     {"000001b610c16305336fe36d", "000001b651e047e145ae22f5", "000001b652c047e36c050396"},
     "IPP",
     352,
     288,
     true},
    {"AdvancedBFrames",
     "mpeg4",
     "-s 720x576 -r 25 -bf 2 -g 6",
     "000001b0f1000001b5a913000001000000012008d48d0800cd16844814103f000001b24c61766335392e33372e313030",
     {"000001b61060d182d5b7f1b6", "000001b651f025f57d69fad3", "000001b690e065274e9d3a7f",
      "000001b6916064a74e9d3a7f", "000001b6136051823db7f1b6", "000001b6926064fd3fd3fa7f",
      "000001b692e064fd3fd3fa7f", "000001b653f023ffffffffff"},
     "IPBBIBBP",
     720,
     576,
     true},
    {"AdvancedInterlaced",
     "mpeg4",
     "-s 720x576 -r 25 -flags +ildct+ilme",
     "000001b001000001b58913000001000000012000c48d8800cd1684481c43000001b24c61766335392e33372e313030",
     {"000001b6106034605ab6fe33", "000001b650f008fd53d69fad", "000001b6516008fff1661d82"},
     "IPP",
     720,
     576,
     true},
    {"AdvancedQuarterPel",
     "mpeg4",
     "-s 640x480 -r 25 -flags +qpel",
     "000001b0f1000001b5a913000001000000012008d48d8800cd14043c14303f000001b24c61766335392e33372e313030",
     {"000001b61060d182d5b7f1b6", "000001b650f023ff0ada7ef8", "000001b6516023ff1fa00945"},
     "IPP",
     640,
     480,
     true},
    {"SimpleDataPartitioned",
     "mpeg4",
     "-s 352x288 -r 25 -data_partitioning 1",
     "000001b001000001b58913000001000000012000c48d8800cd0b04241451000001b24c61766335392e33372e313030",
     {"000001b61060b05336fedb7e", "000001b650f023f0b855ff0a", "000001b6516023f1e3ffddff"},
     "IPP",
     352,
     288,
     true},
    {"SimpleMpegQuant",
     "mpeg4",
     "-s 352x288 -r 25 -mpeg_quant 1",
     "000001b001000001b58913000001000000012000c48d8800cd0b04241490000001b24c61766335392e33372e313030",
     {"000001b61060b18299b7f1b6", "000001b650f02385f14a70e5", "000001b6516023f0a2c23071"},
     "IPP",
     352,
     288,
     true},
    {"SimpleAspect",
     "mpeg4",
     "-s 720x576 -r 25 -aspect 16:9",
     "000001b001000001b58913000001000000012000c4fa016d8800cd1684481443000001b24c61766335392e33372e313030",
     {"000001b61060d182d5b7f1b6", "000001b650f023f57d69fad3", "000001b6516023ffc5e1d82d"},
     "IPP",
     720,
     576,
     true},
    {"XvidSimple",
     "libxvid",
     "-s 640x480 -r 25",
     "000001b003000001b509000001000000012000bc0406c400670c5010f0518f000001b25876694430303639",
     {"000001b61061118476dfc6db", "000001b650e083ffffffffde", "000001b6517073ffffffffde"},
     "IPP",
     640,
     480,
     true},
    {"XvidBFrames",
     "libxvid",
     "-s 720x576 -r 25 -bf 2 -g 6",
     "000001b0f5000001b509000001000000012008bc04068400670c5a1120518f000001b244697658353033623133393370000001b25876694430303639",
     {"000001b61061118476dfc6db", "000001b651e085fbb5f7df7d", "000001b690e164fd6fa920e5",
      "000001b6916164fd6fa920e5", "000001b651cf000001b0f500", "000001b61360f182fdb7f1b6",
      "000001b6926144fff4f44c91", "000001b692e144fff4f44c91"},
     "IPBBNIBB",
     720,
     576,
     true},
    {"XvidQuarterPel",
     "libxvid",
     "-s 640x480 -r 25 -flags +qpel",
     "000001b0f5000001b509000001000000012008ca78080d8800ce18a021e0a1c1000001b25876694430303639",
     {"000001b61061118476dfc6db", "000001b650e083ffffffffde", "000001b6517073ffffffffde"},
     "IPP",
     640,
     480,
     true},
    {"XvidGmc",
     "libxvid",
     "-s 640x480 -r 25 -gmc 1",
     "000001b0f5000001b509000001000000012008ca78080d8800ce18a021e0b07860000001b25876694430303639",
     {"000001b61061118476dfc6db", "000001b650e083ffffffffde", "000001b6517073ffffffffde"},
     "IPP",
     640,
     480,
     true},
    {"XvidMpegQuant",
     "libxvid",
     "-s 320x240 -r 30 -mpeg_quant 1",
     "000001b0f5000001b509000001000000012008bc0406c4007b0c2810785263000001b25876694430303639",
     {"000001b61061118476dfc6db", "000001b650e083e36683e0dc", "000001b6517073e15b28183c"},
     "IPP",
     320,
     240,
     true},
};

class EncoderMpeg4 : public ::testing::TestWithParam<Mpeg4Case> {};

TEST_P(EncoderMpeg4, ConfigurationGivesTheSizeThatFfprobeGives) {
    const Mpeg4Case& c = GetParam();
    MP4VESParser parser;
    std::string hex = c.config;
    parser.TryParseString(hex);
    unsigned int width = 0;
    unsigned int height = 0;
    bool valid = false;
    parser.GetImageSize(width, height, valid);
    EXPECT_TRUE(valid);
    EXPECT_EQ(width, c.ffprobeWidth);
    EXPECT_EQ(height, c.ffprobeHeight);
    EXPECT_EQ(parser.GetPixelFormat(valid), MediaPacket::kPixel420);
    EXPECT_TRUE(valid);
}

TEST_P(EncoderMpeg4, FramesHaveTheTypesThatFfprobeGives) {
    const Mpeg4Case& c = GetParam();
    MP4VESParser parser;
    std::string hex = c.config;
    parser.TryParseString(hex);
    bool allRead = true;
    for (std::size_t i = 0; i < c.vops.size(); ++i) {
        Bytes frame = FromHex(c.vops[i]);
        parser.TryParse(frame.data(), static_cast<unsigned int>(frame.size()));
        bool valid = false;
        const MediaPacket::Frametype type = parser.GetFrameType(valid);
        const char expected = c.ffprobeTypes[i];
        if (!c.typesAreRead) {
            allRead = allRead && valid;
            continue;
        }
        EXPECT_EQ(valid, expected != 'N') << i;
        EXPECT_EQ(type, expected == 'I'   ? MediaPacket::kFrameI
                        : expected == 'P' ? MediaPacket::kFrameP
                        : expected == 'B' ? MediaPacket::kFrameB
                                          : MediaPacket::kFrameUnknown)
            << i;
    }
    EXPECT_EQ(allRead, c.typesAreRead);
}

std::string NameOfMpeg4(const ::testing::TestParamInfo<Mpeg4Case>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(FfmpegAndXvid, EncoderMpeg4, ::testing::ValuesIn(kMpeg4), NameOfMpeg4);

}  // namespace
}  // namespace camclock
