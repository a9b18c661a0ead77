#include "util/PerfCounter.h"

#include <camclock/Utilities.h>

#include <gtest/gtest.h>

namespace camclock::test {
namespace {

TEST(PerfCounter, TheSystemsCounterNeverRunsBackwards) {
    std::int64_t last = PerfCounter::Read();
    for (int i = 0; i < 10'000; ++i) {
        const std::int64_t now = PerfCounter::Read();
        ASSERT_GE(now, last);
        last = now;
    }
    EXPECT_GT(PerfCounter::Frequency(), 0);
}

TEST(PerfCounter, AReplacedCounterIsReadUntilItIsRestored) {
    const std::int64_t frequency = PerfCounter::Frequency();
    const std::int64_t before = PerfCounter::Read();
    PerfCounter::Replace([]() -> std::int64_t { return -42; }, 1'000);
    EXPECT_EQ(PerfCounter::Read(), -42);
    EXPECT_EQ(PerfCounter::Frequency(), 1'000);
    EXPECT_EQ(Utilities::GetCounter(), -42);
    EXPECT_EQ(Utilities::GetCounterFrequency(), 1'000);
    PerfCounter::Restore();
    EXPECT_EQ(PerfCounter::Frequency(), frequency);
    EXPECT_GE(PerfCounter::Read(), before);
}

}  // namespace
}  // namespace camclock::test
