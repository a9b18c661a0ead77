#include "receiver/CodecTable.h"

#include <gtest/gtest.h>

namespace camclock::receiver {
namespace {

TEST(CodecTable, NamesInAnyCase) {
    EXPECT_EQ(CodecOf("H264"), Codec::kH264);
    EXPECT_EQ(CodecOf("h265"), Codec::kH265);
    EXPECT_EQ(CodecOf("mp4v-es"), Codec::kMpeg4Visual);
    EXPECT_EQ(CodecOf("Jpeg"), Codec::kMjpeg);
    for (const char* other : {"", "H26", "H2645", "VP8", "AV1", "PCMU", "JPEG2000"})
        EXPECT_EQ(CodecOf(other), Codec::kOther) << other;
}

TEST(CodecTable, NamesForPeople) {
    EXPECT_EQ(NameForPeople(Codec::kH264), "H.264");
    EXPECT_EQ(NameForPeople(Codec::kH265), "H.265");
    EXPECT_EQ(NameForPeople(Codec::kMpeg4Visual), "MPEG-4 Visual");
    EXPECT_EQ(NameForPeople(Codec::kMjpeg), "Motion JPEG");
    EXPECT_EQ(NameForPeople(Codec::kOther), "other");
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
