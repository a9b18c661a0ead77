#include "receiver/CodecTable.h"

#include <gtest/gtest.h>

namespace camclock::receiver {
namespace {

TEST(CodecTable, NamesInAnyCase) {
    EXPECT_EQ(EncodingOf("H264")->codec, Codec::kH264);
    EXPECT_EQ(EncodingOf("h265")->codec, Codec::kH265);
    EXPECT_EQ(EncodingOf("mp4v-es")->codec, Codec::kMpeg4Visual);
    EXPECT_EQ(EncodingOf("Jpeg")->codec, Codec::kMjpeg);
    EXPECT_EQ(EncodingOf("opus")->codec, Codec::kOther);
    for (const char* unknown : {"", "H26", "H2645", "JPEG2000"})
        EXPECT_EQ(EncodingOf(unknown), nullptr) << unknown;
}

TEST(CodecTable, NamesForPeople) {
    EXPECT_EQ(NameForPeople("h264"), "H.264");
    EXPECT_EQ(NameForPeople("H265"), "H.265");
    EXPECT_EQ(NameForPeople("MP4V-ES"), "MPEG-4 Visual");
    EXPECT_EQ(NameForPeople("JPEG"), "MJPEG");
    EXPECT_EQ(NameForPeople("pcma"), "G.711 A-law");
    EXPECT_EQ(NameForPeople("X-Unheard"), "X-Unheard");
}

TEST(CodecTable, StaticPayloadTypesAreInIt) {
    int known = 0;
    for (int type = -1; type <= 128; ++type) {
        const Encoding* encoding = EncodingOfPayloadType(type);
        EXPECT_EQ(encoding != nullptr, ClockRateOfPayloadType(type) != 0) << type;
        known += encoding != nullptr ? 1 : 0;
    }
    EXPECT_EQ(known, 24);
    EXPECT_EQ(EncodingOfPayloadType(26)->codec, Codec::kMjpeg);
    EXPECT_EQ(EncodingOfPayloadType(2), nullptr);  // once G721: reserved
    EXPECT_EQ(ClockRateOfPayloadType(17), 22'050U);
}

}  // namespace
}  // namespace camclock::receiver
