#include "receiver/NalUnits.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// What the walk showed of a unit; `start`: of its body in the payload.
struct Seen {
    unsigned type;
    std::size_t start;
    std::size_t size;
    bool whole;

    bool operator==(const Seen& other) const {
        return type == other.type && start == other.start && size == other.size && whole == other.whole;
    }
};

void PrintTo(const Seen& seen, std::ostream* out) {
    *out << "type " << seen.type << " at " << seen.start << " size " << seen.size
         << (seen.whole ? " whole" : "");
}

struct Case {
    std::string name;
    Codec codec;
    Bytes payload;
    std::vector<Seen> expected;
};

void PrintTo(const Case& value, std::ostream* out) {
    *out << value.name;
}

class NalUnits : public testing::TestWithParam<Case> {};

TEST_P(NalUnits, AreWalked) {
    const Bytes& payload = GetParam().payload;
    std::vector<Seen> seen;
    ForEachNalUnit(GetParam().codec, payload.data(), payload.size(), [&](const NalUnit& unit) {
        seen.push_back(
            {unit.type, static_cast<std::size_t>(unit.body - payload.data()), unit.size, unit.whole});
        return true;
    });
    EXPECT_EQ(seen, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    H264, NalUnits,
    testing::Values(
        Case{"Empty", Codec::kH264, {}, {}}, Case{"Single", Codec::kH264, {0x65, 1, 2}, {{5, 1, 2, true}}},
        Case{"SingleOfItsHeader", Codec::kH264, {0x09}, {{9, 1, 0, true}}},
        Case{"Type23", Codec::kH264, {0x17, 1}, {{23, 1, 1, true}}},
        Case{"StapA", Codec::kH264, {24, 0, 2, 0x67, 1, 0, 1, 0x68}, {{7, 4, 1, true}, {8, 8, 0, true}}},
        Case{"StapB", Codec::kH264, {25, 9, 9, 0, 2, 0x67, 1}, {{7, 6, 1, true}}},
        Case{"Mtap16",
             Codec::kH264,
             {26, 9, 9, 0, 2, 1, 2, 2, 0x67, 1, 0, 1, 1, 2, 2, 0x68},
             {{7, 9, 1, true}, {8, 16, 0, true}}},
        Case{"Mtap24",
             Codec::kH264,
             {27, 9, 9, 0, 2, 1, 3, 3, 3, 0x67, 1, 0, 1, 1, 3, 3, 3, 0x68},
             {{7, 10, 1, true}, {8, 18, 0, true}}},
        Case{"FuAStart", Codec::kH264, {0x7C, 0x85, 1, 2}, {{5, 2, 2, false}}},
        Case{"FuAMiddle", Codec::kH264, {0x7C, 0x05, 1, 2}, {}},
        Case{"FuAEnd", Codec::kH264, {0x7C, 0x45, 1, 2}, {}},
        Case{"FuBStart", Codec::kH264, {0x7D, 0x85, 9, 9, 1}, {{5, 4, 1, false}}},
        Case{"FuBCutShort", Codec::kH264, {0x7D, 0x85, 9}, {}},
        Case{"FuAOfItsIndicator", Codec::kH264, {0x7C}, {}}, Case{"Type0", Codec::kH264, {0x60, 1}, {}},
        Case{"Type30", Codec::kH264, {0x7E, 1}, {}}, Case{"Type31", Codec::kH264, {0x7F, 1}, {}},
        Case{"StapAWithoutUnits", Codec::kH264, {24}, {}},
        Case{"StapAUnitOfNothing", Codec::kH264, {24, 0, 0, 0, 1, 0x67}, {}},
        Case{"StapAUnitBeyondTheEnd", Codec::kH264, {24, 0, 1, 0x67, 0, 2, 0x68}, {{7, 4, 0, true}}},
        Case{"StapASizeCutShort", Codec::kH264, {24, 0, 1, 0x67, 0}, {{7, 4, 0, true}}},
        Case{"StapBOfItsOrderNumber", Codec::kH264, {25, 9, 9}, {}},
        Case{"Mtap16CutShort", Codec::kH264, {26, 9, 9, 0, 1, 1, 2, 2}, {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    H265, NalUnits,
    testing::Values(
        Case{"Empty", Codec::kH265, {}, {}}, Case{"OneByte", Codec::kH265, {0x26}, {}},
        Case{"Single", Codec::kH265, {0x26, 1, 7}, {{19, 2, 1, true}}},
        Case{"SingleOfItsHeader", Codec::kH265, {0x46, 1}, {{35, 2, 0, true}}},
        Case{"HighestSingle", Codec::kH265, {0x5E, 1, 7}, {{47, 2, 1, true}}},
        Case{"Aggregate",
             Codec::kH265,
             {0x60, 1, 0, 3, 0x42, 1, 7, 0, 2, 0x44, 1},
             {{33, 6, 1, true}, {34, 11, 0, true}}},
        Case{"FuStart", Codec::kH265, {0x62, 1, 0x93, 7, 8}, {{19, 3, 2, false}}},
        Case{"FuMiddle", Codec::kH265, {0x62, 1, 0x13, 7}, {}},
        Case{"FuEnd", Codec::kH265, {0x62, 1, 0x53, 7}, {}},
        Case{"FuOfItsHeader", Codec::kH265, {0x62, 1}, {}},
        Case{"Paci", Codec::kH265, {0x64, 1, 0x26, 0, 1, 2, 3}, {}},
        Case{"Unspecified", Codec::kH265, {0x66, 1, 7}, {}},
        Case{"AggregateUnitShorterThanItsHeader", Codec::kH265, {0x60, 1, 0, 1, 0x42, 0, 2, 0x44, 1}, {}},
        Case{"AggregateUnitBeyondTheEnd", Codec::kH265, {0x60, 1, 0, 3, 0x42, 1}, {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(Others, NalUnits,
                         testing::Values(Case{"Mpeg4Visual", Codec::kMpeg4Visual, {0x65, 1, 2}, {}},
                                         Case{"Other", Codec::kOther, {0x65, 1, 2}, {}}),
                         test::CaseName());

TEST(NalUnitsWalk, EndsWhenTheCallerHasEnough) {
    const Bytes payload{24, 0, 1, 0x67, 0, 1, 0x68};
    int calls = 0;
    ForEachNalUnit(Codec::kH264, payload.data(), payload.size(), [&](const NalUnit&) {
        ++calls;
        return false;
    });
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace camclock::receiver
