#include "util/Tick.h"

#include "support/Fork.h"
#include "support/ManualCounter.h"
#include "support/Ticks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace camclock::test {
namespace {

using namespace std::chrono_literals;

TEST(Sleeper, SleepsUntilItsTimeHasCome) {
    ManualCounter clock;
    SleepingThread thread;
    ASSERT_TRUE(LetTicksPass(3));
    EXPECT_EQ(thread.WakeUps(), 0U);
    thread.sleeper.WakeAt(MonotonicNow_ns() + 5'000'000'000);
    clock.Advance(4'999ms);
    ASSERT_TRUE(LetTicksPass(3));
    EXPECT_EQ(thread.WakeUps(), 0U);
    clock.Advance(1ms);
    ASSERT_TRUE(thread.wakeUps.WaitFor(1));
    ASSERT_TRUE(LetTicksPass(3));
    EXPECT_EQ(thread.WakeUps(), 1U) << "until it is told a new time";
}

TEST(Sleeper, IsWokenByEveryTickWhileItIsDue) {
    SleepingThread thread;
    thread.staysDue = true;
    thread.sleeper.WakeAt(Sleeper::kNow);
    EXPECT_TRUE(thread.wakeUps.WaitFor(5));
}

TEST(Sleeper, IsRousedWithoutATick) {
    SleepingThread thread;
    thread.sleeper.Rouse();
    EXPECT_TRUE(thread.wakeUps.WaitFor(1));
}

TEST(Sleeper, ARousalBeforeItSleepsIsKeptOnce) {
    Sleeper sleeper;
    sleeper.Rouse();
    sleeper.Rouse();
    sleeper.Sleep();
    std::atomic<bool> roused{false};
    std::thread other([&] {
        roused = LetTicksPass(2);
        sleeper.Rouse();
    });
    sleeper.Sleep();
    EXPECT_TRUE(roused) << "two rousals before the first sleep are one";
    other.join();
}

// The period itself: a sleeper that is always due is woken once a tick. The shortest of many distances is
// taken, since a loaded machine stretches the others.
TEST(Sleeper, TheTickComesEveryTenMilliseconds) {
    static_assert(Tick::kPeriod == 10ms);
    SleepingThread thread;
    thread.staysDue = true;
    thread.sleeper.WakeAt(Sleeper::kNow);
    ASSERT_TRUE(thread.wakeUps.WaitFor(30));
    const auto times = thread.wakeUps.All();
    std::vector<std::chrono::steady_clock::duration> distances;
    for (std::size_t i = 2; i < times.size(); i += 2)
        distances.push_back(times[i] - times[i - 2]);
    EXPECT_LT(*std::min_element(distances.begin(), distances.end()), 5 * Tick::kPeriod);
    EXPECT_GE(times.back() - times.front(), 20 * Tick::kPeriod);
}

TEST(Sleeper, MaySleepWhereAnotherSleptBefore) {
    auto first = std::make_unique<SleepingThread>();
    first->staysDue = true;
    first->sleeper.WakeAt(Sleeper::kNow);
    ASSERT_TRUE(first->wakeUps.WaitFor(1));
    const Sleeper keepsTheTick;
    first.reset();
    SleepingThread second;
    ASSERT_TRUE(LetTicksPass(3));
    EXPECT_EQ(second.WakeUps(), 0U) << "what the first was due to does not concern the second";
    second.sleeper.WakeAt(Sleeper::kNow);
    EXPECT_TRUE(second.wakeUps.WaitFor(1));
}

TEST(Sleeper, ThousandsComeAndGoAtOnce) {
    std::vector<std::thread> owners;
    std::atomic<int> woken{0};
    for (int owner = 0; owner < 8; ++owner) {
        owners.emplace_back([&woken, owner] {
            for (int life = 0; life < 60; ++life) {
                std::vector<std::unique_ptr<Sleeper>> idle;
                for (int i = 0; i < 40; ++i)
                    idle.push_back(std::make_unique<Sleeper>());
                for (std::size_t i = 0; i < idle.size(); i += 3)
                    idle[i]->WakeAt(Sleeper::kNow);
                if (life % 20 == owner) {
                    SleepingThread thread;
                    thread.sleeper.WakeAt(Sleeper::kNow);
                    if (thread.wakeUps.WaitFor(1))
                        ++woken;
                }
                for (std::size_t i = 0; i < idle.size(); i += 2)
                    idle[i].reset();
            }
        });
    }
    for (std::thread& owner : owners)
        owner.join();
    EXPECT_EQ(woken, 8 * 3);
}

// ---- one for the process

struct Counted {
    Counted() { ++alive; }
    ~Counted() { --alive; }
    static inline std::atomic<int> alive{0};
};

TEST(ProcessWide, LivesFromItsFirstHolderToItsLast) {
    EXPECT_EQ(Counted::alive, 0);
    {
        const ProcessWide<Counted> first;
        EXPECT_EQ(Counted::alive, 1);
        {
            const ProcessWide<Counted> second;
            EXPECT_EQ(&*first, &*second);
            EXPECT_EQ(Counted::alive, 1);
        }
        EXPECT_EQ(Counted::alive, 1);
    }
    EXPECT_EQ(Counted::alive, 0);
    const ProcessWide<Counted> next;
    EXPECT_EQ(Counted::alive, 1);
}

TEST(ProcessWide, HoldersMayComeAndGoOnManyThreads) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&wrong] {
            for (int i = 0; i < 2'000; ++i) {
                const ProcessWide<Counted> outer;
                const ProcessWide<Counted> inner;
                if (&*outer != &*inner || Counted::alive < 1)
                    ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Counted::alive, 0);
}

#if CAMCLOCK_TESTS_CAN_FORK
TEST(ProcessWide, AChildOfForkHasOneOfItsOwn) {
    const Sleeper keepsTheParentsTick;  // which has no thread in the child
    EXPECT_TRUE(SucceedsInAChild([] {
        SleepingThread thread;
        thread.sleeper.WakeAt(Sleeper::kNow);
        return thread.wakeUps.WaitFor(1);
    }));
    SleepingThread thread;
    thread.sleeper.WakeAt(Sleeper::kNow);
    EXPECT_TRUE(thread.wakeUps.WaitFor(1)) << "and the parent keeps its own";
}
#endif

}  // namespace
}  // namespace camclock::test
