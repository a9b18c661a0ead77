#include "probe/ProbeTurn.h"

#include "support/WaitableList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace camclock::test {
namespace {

const std::atomic<bool> kWanted{true};

/// Takes the turn on a thread of its own: true once it was had and given back.
std::future<bool> TakeAside(ProbeTurn& turn, const std::atomic<bool>& wanted) {
    return std::async(std::launch::async, [&turn, &wanted] {
        const bool had = turn.Take(wanted);
        if (had)
            turn.GiveBack();
        return had;
    });
}

bool HasEnded(const std::future<bool>& future) {
    return future.wait_for(kDeadline) == std::future_status::ready;
}

TEST(ProbeTurn, ServesOneAfterTheOther) {
    ProbeTurn turn;
    int inside = 0;  // guarded by the turn
    std::atomic<int> most{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1'000; ++i) {
                if (!turn.Take(kWanted))
                    return;
                most = (std::max)(most.load(), ++inside);
                --inside;
                turn.GiveBack();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
    EXPECT_EQ(inside, 0);
}

TEST(ProbeTurn, IsNotTakenWhenItIsNoLongerWanted) {
    ProbeTurn turn;
    const std::atomic<bool> unwanted{false};
    EXPECT_FALSE(turn.Take(unwanted));
    ASSERT_TRUE(turn.Take(kWanted)) << "and is left to others";
    EXPECT_FALSE(turn.Take(unwanted)) << "without a wait";
    turn.GiveBack();
}

TEST(ProbeTurn, AWaitEndsOnceTheTurnIsNoLongerWanted) {
    ProbeTurn turn;
    ASSERT_TRUE(turn.Take(kWanted));
    std::atomic<bool> wanted{true};
    const std::atomic<bool> stillWanted{true};
    std::future<bool> leaves = TakeAside(turn, wanted);
    std::future<bool> stays = TakeAside(turn, stillWanted);
    EXPECT_EQ(leaves.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    wanted = false;
    turn.LookAgain();
    ASSERT_TRUE(HasEnded(leaves));
    EXPECT_FALSE(leaves.get());
    turn.GiveBack();
    ASSERT_TRUE(HasEnded(stays));
    EXPECT_TRUE(stays.get());
}

// Whoever leaves may have been the one that the turn's return woke.
TEST(ProbeTurn, WhoLeavesPassesTheTurnOn) {
    for (int round = 0; round < 200; ++round) {
        ProbeTurn turn;
        ASSERT_TRUE(turn.Take(kWanted));
        std::atomic<bool> wanted{true};
        std::future<bool> leaves = TakeAside(turn, wanted);
        std::future<bool> stays = TakeAside(turn, kWanted);
        wanted = false;
        turn.GiveBack();
        ASSERT_TRUE(HasEnded(stays));
        EXPECT_TRUE(stays.get());
        turn.LookAgain();
        ASSERT_TRUE(HasEnded(leaves));
    }
}

}  // namespace
}  // namespace camclock::test
