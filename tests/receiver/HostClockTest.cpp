#include "receiver/HostClock.h"

#include <camclock/Utilities.h>

#include <gtest/gtest.h>

namespace camclock::receiver {
namespace {

TEST(HostClock, IsTheLibrarysClockBeforeRounding) {
    HostClock::Anchor();
    for (int i = 0; i < 1'000; ++i) {
        const TimePoint before = HostClock::Now();
        const TimePoint rounded = Utilities::getInstance().GetTime();
        const TimePoint after = HostClock::Now();
        ASSERT_LE(before, after);
        ASSERT_GE(rounded, before - std::chrono::microseconds(501));
        ASSERT_LE(rounded, after + std::chrono::microseconds(501));
    }
}

}  // namespace
}  // namespace camclock::receiver
