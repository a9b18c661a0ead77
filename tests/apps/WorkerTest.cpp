#include "apps/camclock/sources/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

namespace camclock::app {
namespace {

using Clock = std::chrono::steady_clock;

TEST(Worker, DoesJobsInTheirOrder) {
    std::vector<int> done;
    {
        Worker worker;
        for (int i = 0; i < 100; ++i)
            worker.Post([&done, i] { done.push_back(i); });
    }
    ASSERT_EQ(done.size(), 100U);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(done[static_cast<std::size_t>(i)], i);
}

TEST(Worker, TellsThatAJobIsStuck) {
    std::promise<void> release;
    Worker worker;
    EXPECT_TRUE(worker.WaitUntilIdle(Clock::now()));
    worker.Post([&release] { release.get_future().wait(); });
    EXPECT_FALSE(worker.WaitUntilIdle(Clock::now()));
    release.set_value();
    EXPECT_TRUE(worker.WaitUntilIdle(Clock::now() + std::chrono::minutes(1)));
}

}  // namespace
}  // namespace camclock::app
