#include <camclock/receiver/Format.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

/// Everything of a stream but its control: "video/H264/90000/96/Z2Q=".
std::string TextOf(const Format& format) {
    return format.media + "/" + format.encoding + "/" + std::to_string(format.clockRate_Hz) + "/" +
           std::to_string(format.payloadType) + "/" + format.headers;
}

std::vector<std::string> TextsOf(const std::string& sdp) {
    std::vector<std::string> texts;
    for (const Format& format : Format::FromSdp(sdp))
        texts.push_back(TextOf(format));
    return texts;
}

using Texts = std::vector<std::string>;

/// A camera with picture, sound and metadata.
constexpr const char* kCamera =
    "v=0\r\n"
    "o=- 1700000000 1 IN IP4 192.0.2.7\r\n"
    "s=Session streamed by the camera\r\n"
    "c=IN IP4 0.0.0.0\r\n"
    "t=0 0\r\n"
    "a=control:rtsp://192.0.2.7/live/\r\n"
    "a=range:npt=now-\r\n"
    "m=video 0 RTP/AVP 96\r\n"
    "b=AS:4000\r\n"
    "a=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1; profile-level-id=640028; sprop-parameter-sets=Z2Q=,aA==\r\n"
    "a=control:trackID=1\r\n"
    "m=audio 0 RTP/AVP 97\r\n"
    "a=rtpmap:97 MPEG4-GENERIC/48000/2\r\n"
    "a=fmtp:97 streamtype=5;config=1190;sizelength=13\r\n"
    "a=control:trackID=2\r\n"
    "m=application 0 RTP/AVP 107\r\n"
    "a=rtpmap:107 vnd.onvif.metadata/90000\r\n"
    "a=control:rtsp://192.0.2.7/live/trackID=3\r\n";

TEST(Sdp, PictureSoundAndMetadata) {
    const std::vector<Format> formats = Format::FromSdp(kCamera);
    ASSERT_EQ(formats.size(), 3U);
    EXPECT_EQ(TextOf(formats[0]), "video/H264/90000/96/Z2Q=,aA==");
    EXPECT_EQ(formats[0].codec, Codec::kH264);
    EXPECT_EQ(formats[0].control, "trackID=1");
    EXPECT_EQ(TextOf(formats[1]), "audio/MPEG4-GENERIC/48000/97/");
    EXPECT_EQ(formats[1].codec, Codec::kOther);
    EXPECT_EQ(formats[1].control, "trackID=2");
    EXPECT_EQ(TextOf(formats[2]), "application/vnd.onvif.metadata/90000/107/");
    EXPECT_EQ(formats[2].control, "rtsp://192.0.2.7/live/trackID=3");
}

TEST(Sdp, LineEndsOfEveryKind) {
    std::string text = kCamera;
    const Texts expected = TextsOf(text);
    std::string lf;
    std::string cr;
    for (const char c : text) {
        if (c != '\r')
            lf += c;
        if (c != '\n')
            cr += c;
    }
    EXPECT_EQ(TextsOf(lf), expected);
    EXPECT_EQ(TextsOf(cr), expected);
    EXPECT_EQ(TextsOf(text.substr(0, text.size() - 2)), expected);
}

TEST(Sdp, SeveralPayloadTypesOfOneMedia) {
    EXPECT_EQ(
        TextsOf("m=video 5004/2 RTP/AVPF 96 97 26 98\n"
                "a=rtpmap:97 H265/90000\n"
                "a=rtpmap:96 h264/90000\n"
                "a=control:track1\n"),
        (Texts{"video/h264/90000/96/", "video/H265/90000/97/", "video/JPEG/90000/26/", "video//90000/98/"}));
    for (const Format& format : Format::FromSdp("m=video 0 RTP/AVP 96 97\na=control:track1\n"))
        EXPECT_EQ(format.control, "track1");
}

TEST(Sdp, StaticPayloadTypesNeedNoMap) {
    EXPECT_EQ(TextsOf("m=audio 0 RTP/AVP 0 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18\n"
                      "m=video 0 RTP/AVP 25 26 28 31 32 33 34\n"),
              (Texts{"audio/PCMU/8000/0/",   "audio/GSM/8000/3/",    "audio/G723/8000/4/",
                     "audio/DVI4/8000/5/",   "audio/DVI4/16000/6/",  "audio/LPC/8000/7/",
                     "audio/PCMA/8000/8/",   "audio/G722/8000/9/",   "audio/L16/44100/10/",
                     "audio/L16/44100/11/",  "audio/QCELP/8000/12/", "audio/CN/8000/13/",
                     "audio/MPA/90000/14/",  "audio/G728/8000/15/",  "audio/DVI4/11025/16/",
                     "audio/DVI4/22050/17/", "audio/G729/8000/18/",  "video/CelB/90000/25/",
                     "video/JPEG/90000/26/", "video/nv/90000/28/",   "video/H261/90000/31/",
                     "video/MPV/90000/32/",  "video/MP2T/90000/33/", "video/H263/90000/34/"}));
    EXPECT_EQ(Format::FromSdp("m=video 0 RTP/AVP 26\n").at(0).codec, Codec::kMjpeg);
}

TEST(Sdp, MapGoesBeforeTheStaticType) {
    EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 26\na=rtpmap:26 H264/90000\n"), Texts{"video/H264/90000/26/"});
    EXPECT_EQ(TextsOf("m=audio 0 RTP/AVP 6\na=rtpmap:6 DVI4\n"), Texts{"audio/DVI4/16000/6/"});
}

TEST(Sdp, H265SetsAreJoinedInTheirOrder) {
    const auto formats =
        Format::FromSdp("m=video 0 RTP/AVP 98\n"
                        "a=fmtp:98 profile-id=1;sprop-pps=RAE=; sprop-sps=QgE=,QgI=;sprop-vps=QAE=\n"
                        "a=rtpmap:98 H265/90000\n");
    ASSERT_EQ(formats.size(), 1U);
    EXPECT_EQ(formats[0].codec, Codec::kH265);
    EXPECT_EQ(formats[0].headers, "QAE=,QgE=,QgI=,RAE=");
    EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 98\na=rtpmap:98 H265/90000\na=fmtp:98 sprop-vps=;sprop-pps=RAE=\n"),
              Texts{"video/H265/90000/98/RAE="});
}

TEST(Sdp, Mpeg4VisualConfiguration) {
    const auto formats = Format::FromSdp("m=video 0 RTP/AVP 97\na=rtpmap:97 MP4V-ES/90000\n"
                                         "a=fmtp:97 profile-level-id=1;CONFIG=000001B0\n");
    ASSERT_EQ(formats.size(), 1U);
    EXPECT_EQ(formats[0].codec, Codec::kMpeg4Visual);
    EXPECT_EQ(formats[0].headers, "000001B0");
}

TEST(Sdp, HeadersOfAnotherCodecAreNone) {
    EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 96 97\na=rtpmap:96 H264/90000\na=fmtp:96 config=00\n"
                      "a=rtpmap:97 VP8/90000\na=fmtp:97 sprop-parameter-sets=Z2Q=\n"),
              (Texts{"video/H264/90000/96/", "video/VP8/90000/97/"}));
}

TEST(Sdp, ParametersSpreadOverLines) {
    EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n"
                      "a=fmtp:96 sprop-parameter-sets=Z2Q=,aA==\na=fmtp:96 packetization-mode=1\n"),
              Texts{"video/H264/90000/96/Z2Q=,aA=="});
}

TEST(Sdp, BlanksAndTabsAnywhere) {
    const auto formats =
        Format::FromSdp("  m=Video\t0  RTP/AVP \t 96\t97 \r\n"
                        "\ta=rtpmap: 96\tH264 / 90000 / 1 \r\n"
                        "a=fmtp:96\tpacketization-mode = 1 ;\tsprop-parameter-sets = Z2Q=,aA== \r\n"
                        "a=control:\ttrack1 \r\n");
    ASSERT_EQ(formats.size(), 2U);
    EXPECT_EQ(TextOf(formats[0]), "video/H264/90000/96/Z2Q=,aA==");
    EXPECT_EQ(formats[0].control, "track1");
    EXPECT_EQ(TextOf(formats[1]), "video//90000/97/");
}

TEST(Sdp, ClockRatesThatAreNone) {
    for (const char* rate :
         {"", "/", "/0", "/-1", "/4294967296", "/99999999999999999999999", "/90k", "/0x10", "/+8000"})
        EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 96 97 98\na=rtpmap:96 H264" + std::string(rate) +
                          "\na=rtpmap:97 PCMU" + rate + "\na=rtpmap:98 unheard-of" + rate + "\n"),
                  (Texts{"video/H264/90000/96/", "video/PCMU/8000/97/", "video/unheard-of/90000/98/"}))
            << rate;
    EXPECT_EQ(TextsOf("m=audio 0 RTP/AVP 96\na=rtpmap:96 x/4294967295\n"), Texts{"audio/x/4294967295/96/"});
}

TEST(Sdp, PayloadTypesThatAreNone) {
    EXPECT_EQ(TextsOf("m=video 0 RTP/AVP 128 -1 99999999999999999999 x 127 96x 127\n"
                      "a=rtpmap:128 H264/90000\na=rtpmap:x H264/90000\na=rtpmap:127 H264/90000\n"),
              Texts{"video/H264/90000/127/"});
    EXPECT_TRUE(Format::FromSdp("m=application 9 UDP/DTLS/SCTP webrtc-datachannel\n").empty());
}

TEST(Sdp, AttributesOfTheSessionAreNoStreams) {
    const auto formats = Format::FromSdp("a=control:*\na=rtpmap:96 VP8/90000\nm=video 0 RTP/AVP 96\n");
    ASSERT_EQ(formats.size(), 1U);
    EXPECT_EQ(formats[0].control, "");
    EXPECT_EQ(formats[0].encoding, "");
}

TEST(Sdp, BrokenLinesArePassedOver) {
    EXPECT_EQ(
        TextsOf("garbage\n=\nm\nm=\nm=video\nm=video 0\nm=video 0 RTP/AVP\na=rtpmap:96 VP8/90000\n"
                "m=video 0 RTP/AVP 96\n\n \na\na=\na=rtpmap\na=rtpmap:\na=rtpmap:96\na=rtpmap:96 /90000\n"
                "a=rtpmap96 VP8/90000\na=rtpmap:97 VP8/90000\na=fmtp:\na=fmtp:96\na=fmtp:96 ;;=;=x\n"
                "a =rtpmap:96 VP8/90000\na=rtpmap:96 H264/90000\n"),
        Texts{"video/H264/90000/96/"});
}

TEST(Sdp, LinesTooLongArePassedOver) {
    const std::string tooMuch(20'000, 'A');
    EXPECT_EQ(
        TextsOf("m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 sprop-parameter-sets=" + tooMuch +
                "\nm=audio 0 RTP/AVP 0 " + tooMuch + "\na=rtpmap:96 VP8/90000\na=control:1\n"),
        Texts{"video/H264/90000/96/"});
}

TEST(Sdp, NothingGivesNoStream) {
    EXPECT_TRUE(Format::FromSdp("").empty());
    EXPECT_TRUE(Format::FromSdp(std::string(1'000, '=')).empty());
    EXPECT_TRUE(Format::FromSdp(std::string("m=video 0 RTP/AVP \0", 19)).empty());
}

TEST(Sdp, NoMoreStreamsThanAnyDescriptionHas) {
    std::string text;
    for (int i = 0; i < 1'000; ++i)
        text += "m=video 0 RTP/AVP 96 97\n";
    EXPECT_EQ(Format::FromSdp(text).size(), 256U);
}

/// A mebibyte of each; a reader that is not linear takes longer than the test may.
TEST(Sdp, MuchJunk) {
    constexpr std::size_t kMebibyte = 1'048'576;
    for (const std::string& unit :
         {std::string("x"), std::string("\n"), std::string("m=video 0 RTP/AVP 96\n"),
          std::string("a=rtpmap:96 "), std::string("m=video 0 RTP/AVP "), std::string("96 "),
          std::string("a=fmtp:96 ;=;"), std::string("a=rtpmap:96 H264/90000\n"),
          std::string("a=fmtp:96 sprop-parameter-sets=Z2Q=;\n"), std::string("\0", 1),
          std::string("a=fmtp:96 config=00\r")}) {
        std::string text = "m=video 0 RTP/AVP 96\n";
        while (text.size() < kMebibyte)
            text += unit;
        EXPECT_GE(Format::FromSdp(text).size(), 1U) << unit;
    }
}

}  // namespace
}  // namespace camclock::receiver
