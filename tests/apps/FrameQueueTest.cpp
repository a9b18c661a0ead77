#include "apps/camclock/commands/FrameQueue.h"

#include <gtest/gtest.h>

#include <thread>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

FrameRow Row(std::uint32_t RTP_ts) {
    FrameRow row;
    row.frame.rtp_ts = RTP_ts;
    return row;
}

TEST(FrameQueue, GivesAllRowsInOrder) {
    FrameQueue queue(10);
    queue.Push(Row(1));
    queue.Push(Row(2));
    const auto rows = queue.Take(milliseconds(0));
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].frame.rtp_ts, 1U);
    EXPECT_EQ(rows[1].frame.rtp_ts, 2U);
    EXPECT_TRUE(queue.Take(milliseconds(0)).empty());
    EXPECT_EQ(queue.Dropped(), 0U);
}

TEST(FrameQueue, DropsTheOldestAndCountsThem) {
    FrameQueue queue(2);
    for (std::uint32_t i = 1; i <= 5; ++i)
        queue.Push(Row(i));
    const auto rows = queue.Take(milliseconds(0));
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].frame.rtp_ts, 4U);
    EXPECT_EQ(queue.Dropped(), 3U);
}

TEST(FrameQueue, WakesAWaitingConsumer) {
    FrameQueue queue(10);
    std::thread producer([&queue] { queue.Push(Row(7)); });
    const auto rows = queue.Take(std::chrono::seconds(60));
    producer.join();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].frame.rtp_ts, 7U);
}

}  // namespace
}  // namespace camclock::app
