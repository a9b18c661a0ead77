#include "receiver/Sdp.h"

#include <gtest/gtest.h>

#include <string>

namespace camclock::receiver {
namespace {

TEST(SdpHeaders, FindsTheParametersOfEveryVideoStream) {
    const auto streams =
        StreamsOfSdp("v=0\r\n"
                     "m=audio 0 RTP/AVP 97\r\n"
                     "a=rtpmap:97 mpeg4-generic/48000\r\n"
                     "a=fmtp:97 config=1190\r\n"
                     "m=video 0 RTP/AVP 96 98\r\n"
                     "a=fmtp:96 packetization-mode=1; sprop-parameter-sets=Z2Q=,aA== ;x=1\r\n"
                     "a=rtpmap:96 h264/90000\r\n"
                     "a=rtpmap:98 JPEG/90000\r\n"
                     "m=video 5004 RTP/AVP 97\r\n"
                     "a=rtpmap:97 MP4V-ES/90000\r\n"
                     "a=fmtp:97 profile-level-id=1;CONFIG=000001B0\r\n");
    ASSERT_EQ(streams.size(), 3U);
    EXPECT_EQ(streams[0].kind, SdpStream::Kind::kH264);
    EXPECT_TRUE(streams[0].hasHeaders);
    EXPECT_EQ(streams[0].headers, "Z2Q=,aA==");
    EXPECT_EQ(streams[1].kind, SdpStream::Kind::kOther);
    EXPECT_EQ(streams[1].encoding, "JPEG");
    EXPECT_EQ(streams[2].kind, SdpStream::Kind::kMpeg4Visual);
    EXPECT_EQ(streams[2].headers, "000001B0");
}

TEST(SdpHeaders, StreamWithoutParametersSaysSo) {
    const auto streams = StreamsOfSdp("m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 config=00\n");
    ASSERT_EQ(streams.size(), 1U);
    EXPECT_FALSE(streams[0].hasHeaders);
}

TEST(SdpHeaders, AnyTextIsTaken) {
    for (const std::string& text :
         {std::string(), std::string("m=video"), std::string("m="), std::string("a=rtpmap:\na=fmtp:"),
          std::string("m=video 0 RTP/AVP 96\na=rtpmap:96\na=fmtp:96\na=fmtp:96 ;;=;=x"),
          std::string(1000, '=')}) {
        for (const SdpStream& stream : StreamsOfSdp(text))
            EXPECT_FALSE(stream.hasHeaders);
    }
}

}  // namespace
}  // namespace camclock::receiver
