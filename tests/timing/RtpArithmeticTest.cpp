#include "timing/RtpArithmetic.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace camclock::test {
namespace {

constexpr std::int64_t kMin = (std::numeric_limits<std::int64_t>::min)();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct DistanceCase {
    const char* name;
    std::uint32_t from;
    std::uint32_t to;
    std::int32_t expected;
};

class RtpDistanceTable : public ::testing::TestWithParam<DistanceCase> {};

TEST_P(RtpDistanceTable, TakesTheNearerWayRound) {
    EXPECT_EQ(RtpDistance(GetParam().from, GetParam().to), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(RtpDistance, RtpDistanceTable,
                         ::testing::Values(DistanceCase{"Same", 7, 7, 0},
                                           DistanceCase{"Forward", 1'000, 91'000, 90'000},
                                           DistanceCase{"Back", 90'000, 0, -90'000},
                                           DistanceCase{"WrapsForward", 0xFFFF'FFFF, 89'999, 90'000},
                                           DistanceCase{"WrapsBack", 0, 0xFFFF'FFFF, -1},
                                           DistanceCase{"FarthestForward", 0, 0x7FFF'FFFF, 2'147'483'647},
                                           DistanceCase{"FarthestBack", 0, 0x8000'0000, -2'147'483'647 - 1}),
                         CaseName());

struct TicksCase {
    const char* name;
    std::int32_t distance;
    double rate;
    std::int64_t expected_us;
};

class RtpTicksTable : public ::testing::TestWithParam<TicksCase> {};

TEST_P(RtpTicksTable, AreTruncatedToMicroseconds) {
    EXPECT_EQ(RtpTicksToMicroseconds(GetParam().distance, GetParam().rate), GetParam().expected_us);
}

INSTANTIATE_TEST_SUITE_P(RtpTicks, RtpTicksTable,
                         ::testing::Values(TicksCase{"OneSecond", 90'000, 90'000.0, 1'000'000},
                                           TicksCase{"OneTickIsTruncated", 1, 90'000.0, 11},
                                           TicksCase{"OneTickBackIsTruncatedTowardZero", -1, 90'000.0, -11},
                                           TicksCase{"Longest", 2'147'483'647, 90'000.0, 23'860'929'411},
                                           TicksCase{"RateOfZero", 90'000, 0.0, kMin},
                                           TicksCase{"NoDistanceAtARateOfZero", 0, 0.0, kMin},
                                           TicksCase{"NotANumber", 90'000,
                                                     std::numeric_limits<double>::quiet_NaN(), kMin},
                                           TicksCase{"InfiniteRate", 90'000, kInfinity, 0},
                                           TicksCase{"NegativeRate", 90'000, -90'000.0, -1'000'000},
                                           TicksCase{"TinyRateLeavesTheRange", 1, 1e-300, kMin},
                                           TicksCase{"TinyRateBackwards", -1, 1e-300, kMin}),
                         CaseName());

TEST(NtpTime, HalfASecondLosesAMicrosecondToTheFactor) {
    EXPECT_EQ(NtpToTimePoint(2'208'988'800, 0x8000'0000), TimePoint(Ticks(4'999'990)));
}

struct NtpCase {
    const char* name;
    std::uint32_t seconds;
    std::uint32_t fraction;
    std::int64_t expected_ticks;
};

class NtpTimeTable : public ::testing::TestWithParam<NtpCase> {};

TEST_P(NtpTimeTable, GivesTheTimePoint) {
    EXPECT_EQ(NtpToTimePoint(GetParam().seconds, GetParam().fraction),
              TimePoint(Ticks(GetParam().expected_ticks)));
}

INSTANTIATE_TEST_SUITE_P(NtpTime, NtpTimeTable,
                         ::testing::Values(NtpCase{"UnixEpoch", 2'208'988'800, 0, 0},
                                           NtpCase{"Year2023", 3'908'988'800, 0, 17'000'000'000'000'000},
                                           NtpCase{"OneMillisecond", 2'208'988'800, 4'294'968, 10'000},
                                           NtpCase{"JustUnderAMillisecond", 2'208'988'800, 4'294'967, 9'990},
                                           NtpCase{"JustUnderAMicrosecond", 2'208'988'800, 4'294, 0},
                                           NtpCase{"OneMicrosecond", 2'208'988'800, 4'295, 10},
                                           NtpCase{"LargestFraction", 2'208'988'800, 0xFFFF'FFFF, 9'999'990},
                                           NtpCase{"Year1900", 0, 0, -22'089'888'000'000'000},
                                           NtpCase{"BeforeTheEpochTheFractionStillCountsForward",
                                                   2'208'988'799, 0x8000'0000, -5'000'010},
                                           NtpCase{"EndOfTheEra", 0xFFFF'FFFF, 0, 20'859'784'950'000'000}),
                         CaseName());

}  // namespace
}  // namespace camclock::test
