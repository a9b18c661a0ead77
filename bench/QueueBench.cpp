#include "Check.h"
#include "Measure.h"
#include "plain/PlainQueue.h"

#include <camclock/MediaPacketQueue.h>
#include <camclock/MediaPacketStruct.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#if defined(CAMCLOCK_BENCH_MOODYCAMEL)
#include <concurrentqueue/concurrentqueue.h>
#endif
#if defined(CAMCLOCK_BENCH_TBB)
#include <tbb/concurrent_queue.h>
#endif
#if defined(CAMCLOCK_BENCH_GLIB)
#include <glib.h>
#endif

namespace camclock::bench {
namespace {

using Handle = std::shared_ptr<MediaPacketStruct>;
constexpr int kCapacity = 1'024;

// The peers drop nothing; they are unbounded, and the benches below never let them grow.

#if defined(CAMCLOCK_BENCH_MOODYCAMEL)
class MoodycamelQueue {
public:
    explicit MoodycamelQueue(int) {}
    bool EnqueuePacket(Handle packet) { return queue_.enqueue(std::move(packet)); }
    Handle DequeueNextPacket() {
        Handle packet;
        queue_.try_dequeue(packet);
        return packet;
    }

private:
    moodycamel::ConcurrentQueue<Handle> queue_;
};
#endif

#if defined(CAMCLOCK_BENCH_TBB)
class TbbQueue {
public:
    explicit TbbQueue(int) {}
    bool EnqueuePacket(Handle packet) {
        queue_.push(std::move(packet));
        return true;
    }
    Handle DequeueNextPacket() {
        Handle packet;
        queue_.try_pop(packet);
        return packet;
    }

private:
    tbb::concurrent_queue<Handle> queue_;
};
#endif

#if defined(CAMCLOCK_BENCH_GLIB)
class GlibQueue {
public:
    explicit GlibQueue(int)
        : queue_(g_async_queue_new()) {}
    ~GlibQueue() { g_async_queue_unref(queue_); }
    GlibQueue(const GlibQueue&) = delete;
    GlibQueue& operator=(const GlibQueue&) = delete;
    bool EnqueuePacket(Handle packet) {
        g_async_queue_push(queue_, new Handle(std::move(packet)));
        return true;
    }
    Handle DequeueNextPacket() {
        const std::unique_ptr<Handle> packet(static_cast<Handle*>(g_async_queue_try_pop(queue_)));
        return packet ? *packet : nullptr;
    }

private:
    GAsyncQueue* queue_;
};
#endif

template <class Queue>
void PushPop(benchmark::State& state) {
    Queue queue(kCapacity);
    for (int i = 0; i < 8; ++i)
        queue.EnqueuePacket(std::make_shared<MediaPacketStruct>());
    Measure(state, [&] { queue.EnqueuePacket(queue.DequeueNextPacket()); });
}

/// Some packets from N producers to N consumers that poll, as a recorder's do;
/// wall time a packet. A producer
/// waits while too many are under way, so that nothing is dropped.
template <class Queue>
void HandOff(benchmark::State& state) {
    constexpr int kPackets = 200'000;
    const auto threads = static_cast<int>(state.range(0));
    for (auto _ : state) {
        Queue queue(kCapacity);
        std::atomic<int> underWay{0};
        std::atomic<int> taken{0};
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&] {
                const Handle packet = std::make_shared<MediaPacketStruct>();
                for (int i = 0; i < kPackets / threads; ++i) {
                    while (underWay.load(std::memory_order_relaxed) > kCapacity / 2)
                        std::this_thread::yield();
                    underWay.fetch_add(1, std::memory_order_relaxed);
                    queue.EnqueuePacket(packet);
                }
            });
            workers.emplace_back([&] {
                while (taken.load(std::memory_order_relaxed) < kPackets / threads * threads) {
                    if (queue.DequeueNextPacket()) {
                        taken.fetch_add(1, std::memory_order_relaxed);
                        underWay.fetch_sub(1, std::memory_order_relaxed);
                    } else {
                        std::this_thread::yield();
                    }
                }
            });
        }
        for (auto& worker : workers)
            worker.join();
    }
    state.counters["ns_per_packet"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kPackets * 1e-9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <class Queue>
void Register(const std::string& name) {
    benchmark::RegisterBenchmark(("queue_push_pop/" + name).c_str(), PushPop<Queue>)->Iterations(1'000'000);
    benchmark::RegisterBenchmark(("queue_hand_off/" + name).c_str(), HandOff<Queue>)
        ->Arg(1)
        ->Arg(4)
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
}

[[maybe_unused]] const bool registered = [] {
    Register<MediaPacketQueue>("camclock");
    Register<PlainQueue>("plain");
#if defined(CAMCLOCK_BENCH_MOODYCAMEL)
    Register<MoodycamelQueue>("moodycamel");
#endif
#if defined(CAMCLOCK_BENCH_TBB)
    Register<TbbQueue>("tbb");
#endif
#if defined(CAMCLOCK_BENCH_GLIB)
    Register<GlibQueue>("glib_async_queue");
#endif
    return true;
}();

std::string QueuesAgree() {
    std::mt19937 random(3);
    for (const int capacity : {-1, 0, 1, 5, 64}) {
        MediaPacketQueue ours(capacity);
        PlainQueue plain(capacity);
        for (int i = 0; i < 20'000; ++i) {
            const Handle packet = random() % 10 == 0 ? nullptr : std::make_shared<MediaPacketStruct>();
            const bool same = random() % 2 == 0 ? ours.EnqueuePacket(packet) == plain.EnqueuePacket(packet)
                                                : ours.DequeueNextPacket() == plain.DequeueNextPacket();
            if (!same)
                return "capacity " + std::to_string(capacity) + ", call " + std::to_string(i);
        }
    }
    return {};
}
const RegisterCheck queuesAgree("queue", QueuesAgree);

}  // namespace
}  // namespace camclock::bench
