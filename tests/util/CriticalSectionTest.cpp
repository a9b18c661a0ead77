#include "util/CriticalSection.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace camclock::test {
namespace {

TEST(CriticalSection, LetsOneThreadInAtATime) {
    CriticalSection section;
    int count = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1'000; ++i) {
                const std::lock_guard<CriticalSection> guard(section);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, 4'000);
}

}  // namespace
}  // namespace camclock::test
