#include "util/Arithmetic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace camclock::test {
namespace {

constexpr std::int64_t kMin = (std::numeric_limits<std::int64_t>::min)();
constexpr std::int64_t kMax = (std::numeric_limits<std::int64_t>::max)();

TEST(Arithmetic, SumsDifferencesAndProductsWrapAround) {
    EXPECT_EQ(WrappingAdd(2, 3), 5);
    EXPECT_EQ(WrappingAdd(kMax, 1), kMin);
    EXPECT_EQ(WrappingAdd(kMin, -1), kMax);
    EXPECT_EQ(WrappingSubtract(2, 3), -1);
    EXPECT_EQ(WrappingSubtract(kMin, 1), kMax);
    EXPECT_EQ(WrappingSubtract(0, kMin), kMin);
    EXPECT_EQ(WrappingSubtract(17'000'000'000'000'000, kMin), -9'206'372'036'854'775'808);
    EXPECT_EQ(WrappingMultiply(-3, 4), -12);
    EXPECT_EQ(WrappingMultiply(kMin, 10), 0);
    EXPECT_EQ(WrappingMultiply(kMax, 10'000), -10'000);
}

TEST(Arithmetic, DoublesAreTruncatedTowardZero) {
    EXPECT_EQ(TruncateToInt64(0.0), 0);
    EXPECT_EQ(TruncateToInt64(1.999), 1);
    EXPECT_EQ(TruncateToInt64(-1.999), -1);
    EXPECT_EQ(TruncateToInt64(9'223'372'036'854'774'784.0),
              9'223'372'036'854'774'784);  // the largest below 2^63
    EXPECT_EQ(TruncateToInt64(-9'223'372'036'854'775'808.0), kMin);
}

TEST(Arithmetic, WhatDoesNotFitBecomesTheMostNegativeValue) {
    EXPECT_EQ(TruncateToInt64(9'223'372'036'854'775'808.0), kMin);
    EXPECT_EQ(TruncateToInt64(-1e300), kMin);
    EXPECT_EQ(TruncateToInt64(std::numeric_limits<double>::infinity()), kMin);
    EXPECT_EQ(TruncateToInt64(-std::numeric_limits<double>::infinity()), kMin);
    EXPECT_EQ(TruncateToInt64(std::numeric_limits<double>::quiet_NaN()), kMin);
}

TEST(Arithmetic, TimePointsMoveInTicksMicrosecondsAndMilliseconds) {
    const TimePoint start(Ticks(100));
    EXPECT_EQ(MovedBy(start, -101), TimePoint(Ticks(-1)));
    EXPECT_EQ(MovedByMicroseconds(start, 7), TimePoint(Ticks(170)));
    EXPECT_EQ(MovedByMilliseconds(start, 7), TimePoint(Ticks(70'100)));
    EXPECT_EQ(TicksBetween(start, TimePoint(Ticks(40))), -60);
}

TEST(Arithmetic, TimePointsAtTheEndsOfTheRangeWrapAround) {
    const TimePoint last = (TimePoint::max)();
    EXPECT_EQ(MovedBy(last, 1), kNotYetSet);
    EXPECT_EQ(TicksBetween(kNotYetSet, last), -1);
    EXPECT_EQ(MovedByMilliseconds(TimePoint(Ticks(0)), kMin),
              TimePoint(Ticks(0)));  // 2^63 * 10,000 is a multiple of 2^64
}

}  // namespace
}  // namespace camclock::test
