#include "support/ManualCounter.h"
#include "util/PerfCounter.h"

#include <camclock/Utilities.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <thread>
#include <vector>

namespace camclock::test {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kStart(Ticks(17'000'000'000'000'000));  // 2023-11-14 22:13:20

TimePoint SystemNow() {
    return std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
}

std::int64_t FixedCounter() {
    return 5'000'000;
}

// The clock is made once in a process, so its first moment is looked at in a process of its own.
TEST(UtilitiesClock, CountsFromConstructionWithoutAnchor) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            PerfCounter::Replace(&FixedCounter, 1'000);  // the counter's whole value stands for 5,000 s
            const TimePoint before = SystemNow();
            const TimePoint time = Utilities::getInstance().GetTime();
            const TimePoint after = SystemNow();
            const std::chrono::seconds shift(5'000);
            std::exit(before + shift <= time && time <= after + shift ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(UtilitiesClock, IsOneForTheProcess) {
    EXPECT_EQ(&Utilities::getInstance(), &Utilities::getInstance());
}

TEST(UtilitiesClock, TwoReadingsWithinAMillisecondAreEqual) {
    ManualCounter counter(kStart);
    counter.Advance(milliseconds(3));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(3));
    counter.Advance(Ticks(4'999));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(3));
}

TEST(UtilitiesClock, HalfAMillisecondRoundsUp) {
    ManualCounter counter(kStart);
    counter.Advance(Ticks(4'999));
    EXPECT_EQ(counter.Now(), kStart);
    counter.Advance(Ticks(1));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(1));
    counter.Advance(Ticks(9'999));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(1));
    counter.Advance(Ticks(1));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(2));
}

TEST(UtilitiesClock, ATimeBeforeTheReferenceIsTruncatedTowardZero) {
    ManualCounter counter(kStart);
    Utilities::getInstance().ResetTime(kStart, 20'000);  // the counter stands 2 ms before the reference
    EXPECT_EQ(counter.Now(), kStart - milliseconds(1));  // -2 + 0.5, truncated
    counter.Advance(milliseconds(1));
    EXPECT_EQ(counter.Now(), kStart);
}

TEST(UtilitiesClock, AfterAnAnchorTheElapsedMillisecondsAreAdded) {
    ManualCounter counter;
    counter.Advance(std::chrono::hours(7));
    Utilities::getInstance().ResetTime(kStart, Utilities::GetCounter());
    EXPECT_EQ(counter.Now(), kStart);
    counter.Advance(Ticks(12'345'678));
    EXPECT_EQ(counter.Now(), kStart + milliseconds(1'235));
}

TEST(UtilitiesClock, ReadsTheRealCounterFromItsAnchor) {
    Utilities& clock = Utilities::getInstance();
    clock.ResetTime(kStart, Utilities::GetCounter());
    TimePoint last = clock.GetTime();
    EXPECT_GE(last, kStart);
    for (int i = 0; i < 10'000; ++i) {
        const TimePoint now = clock.GetTime();
        ASSERT_GE(now, last);
        EXPECT_EQ((now - kStart).count() % 10'000, 0);  // whole milliseconds
        last = now;
    }
    clock.AnchorToSystemClock();
}

TEST(UtilitiesClock, AnchorToSystemClockTakesTheSystemsTime) {
    ManualCounter counter;
    counter.Advance(std::chrono::hours(1));
    const TimePoint before = SystemNow();
    Utilities::getInstance().AnchorToSystemClock();
    const TimePoint after = SystemNow();
    EXPECT_LE(before, counter.Now());
    EXPECT_LE(counter.Now(), after);
}

TEST(UtilitiesClock, ExtremeAnchorsHaveADefinedResult) {
    constexpr std::int64_t kMin = (std::numeric_limits<std::int64_t>::min)();
    ManualCounter counter(kStart);
    // 0 - min wraps around to min counts; at 10 MHz those are -922,337,203,685,477.58 ms, halves rounded up.
    Utilities::getInstance().ResetTime(TimePoint(Ticks(0)), kMin);
    EXPECT_EQ(counter.Now(), TimePoint(Ticks(-9'223'372'036'854'770'000)));
    // The sum of base and elapsed time wraps around.
    Utilities::getInstance().ResetTime((TimePoint::max)(), -10'000);
    EXPECT_EQ(counter.Now(), TimePoint(Ticks(kMin + 9'999)));
}

TEST(UtilitiesClock, MayBeReadAndAnchoredFromManyThreads) {
    Utilities& clock = Utilities::getInstance();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&clock, t] {
            for (int i = 0; i < 2'000; ++i) {
                if (t == 0)
                    clock.ResetTime(kStart, Utilities::GetCounter());
                else
                    clock.GetTime();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(clock.GetTime(), kStart);
    clock.AnchorToSystemClock();
}

}  // namespace
}  // namespace camclock::test
