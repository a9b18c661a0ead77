#include "logging/EntryQueue.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace camclock::test {
namespace {

using Queue = EntryQueue<int>;

void Append(Queue& queue, int value) {
    queue.Next() = value;
    queue.Commit();
}

std::vector<int> Values(const Queue::Batch& batch) {
    std::vector<int> values;
    for (const auto* block = batch.first.get(); block != nullptr; block = block->next.get())
        values.insert(values.end(), block->entries.begin(),
                      block->entries.begin() + static_cast<std::ptrdiff_t>(block->used));
    return values;
}

TEST(EntryQueue, KeepsTheOrderOverManyBlocks) {
    Queue queue;
    std::vector<int> expected;
    for (int i = 0; i < 1'000; ++i) {
        Append(queue, i);
        expected.push_back(i);
    }
    EXPECT_EQ(Values(queue.TakeAll()), expected);
    EXPECT_TRUE(queue.TakeAll().Empty());
}

TEST(EntryQueue, AnEntryThatIsNotCommittedDoesNotCount) {
    Queue queue;
    Append(queue, 1);
    queue.Next() = 2;
    Append(queue, 3);
    EXPECT_EQ(Values(queue.TakeAll()), (std::vector<int>{1, 3}));
}

TEST(EntryQueue, BlocksThatComeBackAreUsedAgain) {
    Queue queue;
    Append(queue, 1);
    Queue::Batch batch = queue.TakeAll();
    const auto* const block = batch.first.get();
    queue.Recycle(batch);
    EXPECT_TRUE(batch.Empty());
    Append(queue, 2);
    batch = queue.TakeAll();
    EXPECT_EQ(batch.first.get(), block);
    EXPECT_EQ(Values(batch), std::vector<int>{2});
}

TEST(EntryQueue, ABurstIsNotKeptWhole) {
    Queue queue;
    for (int i = 0; i < 100'000; ++i)
        Append(queue, i);
    Queue::Batch batch = queue.TakeAll();
    queue.Recycle(batch);
    EXPECT_FALSE(batch.Empty());  // the rest is the caller's to free
    Append(queue, 7);
    EXPECT_EQ(Values(queue.TakeAll()), std::vector<int>{7});
}

/// An entry that counts how many there are.
struct Counted {
    Counted() { ++alive; }
    ~Counted() { --alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    static inline std::size_t alive = 0;
};

// Freed one inside the other, a chain of this length would need more stack than a thread has.
TEST(EntryQueue, ALongChainIsFreedWithoutRecursion) {
    constexpr std::size_t kMany = 2'000'000;
    const auto fill = [](EntryQueue<Counted>& queue) {
        for (std::size_t i = 0; i < kMany; ++i) {
            queue.Next();
            queue.Commit();
        }
    };
    {
        EntryQueue<Counted> queue;
        fill(queue);
        auto batch = queue.TakeAll();
        EXPECT_EQ(Counted::alive, kMany);
        fill(queue);
        EXPECT_EQ(Counted::alive, 2 * kMany);
        batch = queue.TakeAll();
        EXPECT_EQ(Counted::alive, kMany) << "assigned over";
        fill(queue);
    }
    EXPECT_EQ(Counted::alive, 0U) << "destroyed, in a batch and in a queue";
}

TEST(EntryQueue, IsEmptyUntilAnEntryAndOnceAllIsTaken) {
    Queue queue;
    EXPECT_TRUE(queue.Empty());
    Append(queue, 1);
    EXPECT_FALSE(queue.Empty());
    Queue::Batch batch = queue.TakeAll();
    EXPECT_TRUE(queue.Empty());
    queue.Recycle(batch);
    EXPECT_TRUE(queue.Empty()) << "memory that came back holds no entry";
}

}  // namespace
}  // namespace camclock::test
