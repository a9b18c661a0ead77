#include <camclock/MediaPacketQueue.h>
#include <camclock/MediaPacketStruct.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace camclock {
namespace {

static_assert(!std::is_copy_constructible_v<MediaPacketQueue> &&
              !std::is_copy_assignable_v<MediaPacketQueue>);
static_assert(!std::has_virtual_destructor_v<MediaPacketQueue>);

std::shared_ptr<MediaPacketStruct> Packet(std::uint32_t rtp = 0) {
    auto packet = std::make_shared<MediaPacketStruct>();
    packet->RTP_ts = rtp;
    return packet;
}

TEST(MediaPacketQueue, DropsTheOldestBeyondItsCapacity) {
    MediaPacketQueue queue(2);
    const auto a = Packet();
    const auto b = Packet();
    const auto c = Packet();
    EXPECT_TRUE(queue.EnqueuePacket(a));
    EXPECT_TRUE(queue.EnqueuePacket(b));
    EXPECT_TRUE(queue.EnqueuePacket(c));
    EXPECT_EQ(queue.DequeueNextPacket(), b);
    EXPECT_EQ(queue.DequeueNextPacket(), c);
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);
}

TEST(MediaPacketQueue, RefusesAnEmptyHandleAndStaysAsItWas) {
    MediaPacketQueue queue(2);
    EXPECT_FALSE(queue.EnqueuePacket(nullptr));
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);

    const auto a = Packet();
    const auto b = Packet();
    queue.EnqueuePacket(a);
    queue.EnqueuePacket(b);
    EXPECT_FALSE(queue.EnqueuePacket(nullptr));
    EXPECT_EQ(queue.DequeueNextPacket(), a);
    EXPECT_EQ(queue.DequeueNextPacket(), b);
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);
}

TEST(MediaPacketQueue, KeepsTheFiveNewestByDefault) {
    MediaPacketQueue queue;
    for (std::uint32_t rtp = 1; rtp <= 8; ++rtp) {
        EXPECT_TRUE(queue.EnqueuePacket(Packet(rtp)));
    }
    for (std::uint32_t rtp = 4; rtp <= 8; ++rtp) {
        const auto packet = queue.DequeueNextPacket();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->RTP_ts, rtp);
    }
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);
}

TEST(MediaPacketQueue, CapacityZeroTakesEveryPacketAndKeepsNone) {
    MediaPacketQueue queue(0);
    const std::weak_ptr<MediaPacketStruct> watched = [&] {
        auto packet = Packet();
        EXPECT_TRUE(queue.EnqueuePacket(packet));
        return packet;
    }();
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(queue.EnqueuePacket(Packet()));
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);
}

TEST(MediaPacketQueue, NegativeCapacityNeverDrops) {
    MediaPacketQueue queue(-1);
    for (std::uint32_t rtp = 0; rtp < 10'000; ++rtp) {
        EXPECT_TRUE(queue.EnqueuePacket(Packet(rtp)));
    }
    for (std::uint32_t rtp = 0; rtp < 10'000; ++rtp) {
        const auto packet = queue.DequeueNextPacket();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->RTP_ts, rtp);
    }
    EXPECT_EQ(queue.DequeueNextPacket(), nullptr);
}

TEST(MediaPacketQueue, ReleasesTheDroppedPacketAndKeepsTheCallersHandle) {
    MediaPacketQueue queue(1);
    auto kept = Packet(1);
    queue.EnqueuePacket(kept);
    EXPECT_EQ(kept.use_count(), 2);
    const std::weak_ptr<MediaPacketStruct> dropped = [&] {
        auto packet = Packet(2);
        queue.EnqueuePacket(packet);
        return packet;
    }();
    EXPECT_EQ(kept.use_count(), 1);
    EXPECT_FALSE(dropped.expired());
    queue.EnqueuePacket(Packet(3));
    EXPECT_TRUE(dropped.expired());
}

TEST(MediaPacketQueue, GivesItsOwnReferenceAwayWhenDequeuing) {
    MediaPacketQueue queue;
    const auto packet = Packet();
    queue.EnqueuePacket(packet);
    EXPECT_EQ(packet.use_count(), 2);
    const auto taken = queue.DequeueNextPacket();
    EXPECT_EQ(taken, packet);
    EXPECT_EQ(packet.use_count(), 2);
}

TEST(MediaPacketQueue, ReleasesWhatItHoldsAtTheEnd) {
    const auto packet = Packet();
    {
        MediaPacketQueue queue;
        queue.EnqueuePacket(packet);
        EXPECT_EQ(packet.use_count(), 2);
    }
    EXPECT_EQ(packet.use_count(), 1);
}

TEST(MediaPacketQueue, RecordThatUsesTheQueueWhenDroppedDoesNotLockItUp) {
    MediaPacketQueue queue(1);
    bool ended = false;
    std::shared_ptr<MediaPacketStruct> reentrant(new MediaPacketStruct, [&](MediaPacketStruct* record) {
        delete record;
        ended = queue.DequeueNextPacket() != nullptr;
    });
    queue.EnqueuePacket(std::move(reentrant));
    queue.EnqueuePacket(Packet());
    EXPECT_TRUE(ended);
}

TEST(MediaPacketQueue, ManyThreadsLoseAndDoubleNothing) {
    constexpr std::uint32_t kProducers = 4;
    constexpr std::uint32_t kConsumers = 2;
    constexpr std::uint32_t kPerProducer = 5'000;
    MediaPacketQueue queue(-1);
    std::vector<std::atomic<int>> seen(std::size_t{kProducers} * kPerProducer);
    std::atomic<std::uint32_t> taken{0};
    std::vector<std::thread> threads;
    for (std::uint32_t p = 0; p < kProducers; ++p) {
        threads.emplace_back([&, p] {
            for (std::uint32_t i = 0; i < kPerProducer; ++i) {
                queue.EnqueuePacket(Packet(p * kPerProducer + i));
            }
        });
    }
    for (std::uint32_t c = 0; c < kConsumers; ++c) {
        threads.emplace_back([&] {
            while (taken < kProducers * kPerProducer) {
                if (const auto packet = queue.DequeueNextPacket()) {
                    ++seen[packet->RTP_ts];
                    ++taken;
                } else {
                    std::this_thread::yield();
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (const auto& count : seen) {
        EXPECT_EQ(count, 1);
    }
}

TEST(MediaPacketQueue, BoundedUnderManyThreadsKeepsAtMostItsCapacity) {
    MediaPacketQueue queue(3);
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int p = 0; p < 3; ++p) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2'000; ++i) {
                EXPECT_TRUE(queue.EnqueuePacket(Packet()));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    int left = 0;
    while (queue.DequeueNextPacket() != nullptr) {
        ++left;
    }
    EXPECT_EQ(left, 3);
}

}  // namespace
}  // namespace camclock
