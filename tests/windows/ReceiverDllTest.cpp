// An application's view of camclock_receiver.dll: public headers only, linked against the DLLs alone.

#include <winsock2.h>

#include <camclock/receiver/Format.h>

#include "windows/VersionResource.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using camclock::receiver::Codec;
using camclock::receiver::Format;

TEST(ReceiverDll, CarriesTheVersionOfTheHeaderAsItsResource) {
    camclock::test::ExpectVersionResource("camclock_receiver.dll");
}

TEST(ReceiverDll, GivesTheFormatsOfADescription) {
    const std::vector<Format> formats = Format::FromSdp(
        "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 sprop-parameter-sets=Z2Q=,aA==\r\n"
        "m=audio 0 RTP/AVP 8\r\na=control:trackID=2\r\n");
    ASSERT_EQ(formats.size(), 2U);
    EXPECT_EQ(formats[0].codec, Codec::kH264);
    EXPECT_EQ(formats[0].headers, "Z2Q=,aA==");
    EXPECT_EQ(formats[1].encoding, "PCMA");
    EXPECT_EQ(formats[1].clockRate_Hz, 8'000U);
    EXPECT_EQ(formats[1].control, "trackID=2");
}

}  // namespace
