#include "logging/TimeText.h"
#include "logging/Text.h"

#include "support/NamedCases.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <thread>

namespace camclock::test {
namespace {

constexpr const char* kFormat = "%Y-%m-%d %H:%M:%S";
constexpr std::int32_t kMin32 = (std::numeric_limits<std::int32_t>::min)();
constexpr std::int32_t kMax32 = (std::numeric_limits<std::int32_t>::max)();

struct TimeCase {
    const char* name;
    std::int64_t ticks;
    const char* expected;
};

class TimeTextTable : public ::testing::TestWithParam<TimeCase> {};

TEST_P(TimeTextTable, GivesTheText) {
    const TimePoint time(Ticks(GetParam().ticks));
    EXPECT_EQ(TimePointToText(time, kFormat, true), GetParam().expected);
    EXPECT_EQ(Text("before ", time, " after"), std::string("before ") + GetParam().expected + " after");
}

INSTANTIATE_TEST_SUITE_P(
    TimeText, TimeTextTable,
    ::testing::Values(
        TimeCase{"Epoch", 0, "1970-01-01 00:00:00.000"},
        TimeCase{"EveryField", 19'331'644'290'420'000, "2031-04-05 14:07:09.042"},
        TimeCase{"TicksBelowAMillisecondAreDropped", 19'331'644'290'429'999, "2031-04-05 14:07:09.042"},
        TimeCase{"LastMillisecondOfASecond", 19'331'644'299'999'999, "2031-04-05 14:07:09.999"},
        TimeCase{"LeapDay", 17'091'648'000'000'000, "2024-02-29 00:00:00.000"},
        TimeCase{"OneTickBefore1970", -1, "1970-01-01 00:00:00.000"},
        TimeCase{"OneMillisecondBefore1970", -10'000, "1970-01-01 00:00:00.-01"},
        TimeCase{"HalfASecondBefore1970", -5'000'000, "1970-01-01 00:00:00.-500"},
        TimeCase{"AllButASecondBefore1970", -9'999'999, "1970-01-01 00:00:00.-999"},
        TimeCase{"ASecondBefore1970", -10'000'000, "Invalid timepoint"},
        TimeCase{"OneAndAHalfSecondsBefore1970", -15'000'000, "Invalid timepoint"},
        TimeCase{"LastSecondOfTheYear3000", 325'352'159'999'990'000, "3000-12-31 23:59:59.999"},
        TimeCase{"LastSecondOfTheCalendar", 325'352'447'999'999'999, "3001-01-01 07:59:59.999"},
        TimeCase{"PastTheCalendar", 325'352'448'000'000'000, "Invalid timepoint"},
        TimeCase{"NotYetSet", (std::numeric_limits<std::int64_t>::min)(), "Invalid timepoint"},
        TimeCase{"LastTimePoint", (std::numeric_limits<std::int64_t>::max)(), "Invalid timepoint"}),
    CaseName());

TEST(TimeText, TheLastSecondBefore1970IsInvalidOnAFreshThreadToo) {
    std::string text;
    std::thread([&text] { text = Text(TimePoint(Ticks(-15'000'000))); }).join();
    EXPECT_EQ(text, "Invalid timepoint");
}

TEST(TimeText, WithoutMillisecondsNoneAreAppended) {
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(19'331'644'299'999'999)), kFormat, false),
              "2031-04-05 14:07:09");
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(-5'000'000)), kFormat, false), "1970-01-01 00:00:00");
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(-10'000'000)), kFormat, false), "Invalid timepoint");
}

TEST(TimeText, TakesOtherFormats) {
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(19'331'644'290'420'000)), "%d.%m.%Y um %H Uhr", true),
              "05.04.2031 um 14 Uhr.042");
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(19'331'644'290'420'000)), "", true), ".042");
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(0)), "", false), "");
}

TEST(TimeText, ATextOfMoreThan99CharactersIsLeftOut) {
    const TimePoint time(Ticks(420'000));
    const std::string fits(99, 'x');
    EXPECT_EQ(TimePointToText(time, fits, false), fits);
    EXPECT_EQ(TimePointToText(time, fits, true), fits + ".042");
    EXPECT_EQ(TimePointToText(time, fits + "x", false), "");
    EXPECT_EQ(TimePointToText(time, fits + "x", true), ".042");
    EXPECT_EQ(TimePointToText(time, std::string(96, 'x') + "%Y", true), ".042");
}

TEST(TimeText, IsUtcWhateverTheLocalZone) {
    const TimeZone east("AAA-11");
    EXPECT_EQ(TimePointToText(TimePoint(Ticks(0)), kFormat, true), "1970-01-01 00:00:00.000");
}

TEST(TimeText, LogTimesAgreeWithTheFormatOverRandomTimes) {
    constexpr unsigned kSeed = 3202;
    SCOPED_TRACE(::testing::Message() << "seed " << kSeed);
    std::mt19937_64 random(kSeed);
    std::uniform_int_distribution<std::int64_t> anywhere(-30'000'000, 325'352'920'000'000'000);
    std::uniform_int_distribution<std::int64_t> step(-15'000'000, 15'000'000);
    for (int i = 0; i < 2'000; ++i) {
        TimePoint time(Ticks(anywhere(random)));
        for (int k = 0; k < 5; ++k) {  // neighbours share their second, or just do not
            ASSERT_EQ(Text(time), TimePointToText(time, kFormat, true)) << time.time_since_epoch().count();
            time += Ticks(step(random));
        }
    }
}

struct PairCase {
    const char* name;
    DurationPair duration;
    DurationPair expected;
};

class NormalizeDurationTable : public ::testing::TestWithParam<PairCase> {};

TEST_P(NormalizeDurationTable, CarriesTheMicroseconds) {
    const DurationPair result = NormalizeDuration(GetParam().duration);
    EXPECT_EQ(result.seconds, GetParam().expected.seconds);
    EXPECT_EQ(result.microseconds, GetParam().expected.microseconds);
}

INSTANTIATE_TEST_SUITE_P(NormalizeDuration, NormalizeDurationTable,
                         ::testing::Values(PairCase{"InRange", {3, 999'999}, {3, 999'999}},
                                           PairCase{"Zero", {0, 0}, {0, 0}},
                                           PairCase{"Negative", {3, -1'500'000}, {1, 500'000}},
                                           PairCase{"JustNegative", {0, -1}, {-1, 999'999}},
                                           PairCase{"WholeNegativeSecond", {0, -1'000'000}, {-1, 0}},
                                           PairCase{"TwoSeconds", {0, 2'000'000}, {2, 0}},
                                           PairCase{"JustASecond", {-1, 1'000'000}, {0, 0}},
                                           PairCase{"MostMicroseconds", {0, kMax32}, {2'147, 483'647}},
                                           PairCase{"FewestMicroseconds", {0, kMin32}, {-2'148, 516'352}},
                                           PairCase{"SecondsWrapForward", {kMax32, 1'000'000}, {kMin32, 0}},
                                           PairCase{"SecondsWrapBack", {kMin32, -1}, {kMax32, 999'999}}),
                         CaseName());

struct SpanCase {
    const char* name;
    DurationPair duration;
    const char* expected;
};

class DurationToTextTable : public ::testing::TestWithParam<SpanCase> {};

TEST_P(DurationToTextTable, GivesTheTextAtUtc) {
    const TimeZone utc("UTC0");
    EXPECT_EQ(DurationToText(GetParam().duration), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    DurationToText, DurationToTextTable,
    ::testing::Values(SpanCase{"Zero", {0, 0}, "00:00:00.000000"},
                      SpanCase{"EveryField", {3'723, 45}, "01:02:03.000045"},
                      SpanCase{"TheSignBelongsToTheSeconds", {-2, 500'000}, "-00:00:02.500000"},
                      SpanCase{"ADayWrapsAround", {86'400 + 5, 999'999}, "00:00:05.999999"},
                      SpanCase{"MicrosecondsAsTheyStand", {1, 1'234'567}, "00:00:01.1234567"},
                      SpanCase{"NegativeMicroseconds", {0, -5}, "00:00:00.-00005"},
                      SpanCase{"MostSeconds", {kMax32, 0}, "03:14:07.000000"},
                      SpanCase{"FewestSeconds", {kMin32, 0}, "-03:14:08.000000"},
                      // 19 characters at most
                      SpanCase{"CutToTheBuffer", {-2, kMin32}, "-00:00:02.-21474836"},
                      SpanCase{"JustFits", {2, kMax32}, "00:00:02.2147483647"}),
    CaseName());

TEST(DurationToText, AddsTheZonesOffset) {
    const TimeZone east("AAA-1");
    EXPECT_EQ(DurationToText({5, 0}), "01:00:05.000000");
    EXPECT_EQ(DurationToText({-5, 0}), "-01:00:05.000000");
    EXPECT_EQ(DurationToText({23 * 3'600, 7}), "00:00:00.000007");
}

TEST(DurationToText, WestOfGreenwichALongSpanLosesTheOffset) {
    const TimeZone west("AAA5");
    EXPECT_EQ(DurationToText({6 * 3'600, 0}), "01:00:00.000000");
}

TEST(DurationToText, WestOfGreenwichAShortSpanIsShownInSomeForm) {
    const TimeZone west("AAA5");
    const std::string text = DurationToText({5, 250});
    // Where the platform's calendar reaches before 1970 it is the local time of day, else UTC's.
    EXPECT_TRUE(text == "19:00:05.000250" || text == "00:00:05.000250") << text;
}

}  // namespace
}  // namespace camclock::test
