#pragma once

#include "util/CriticalSection.h"
#include "util/ProcessWide.h"
#include "util/Signal.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace camclock {

class Sleeper;

/// Who has something to do? One thread that looks at all sleepers of the process every 10 ms, one load each,
/// and wakes those whose time has come. Thousands of threads that have nothing to do thus cost a few
/// microseconds every 10 ms in place of a wake-up each.
///
/// `Sleeper` is its only user; its thread runs while there is one.
class Tick {
public:
    static constexpr std::chrono::milliseconds kPeriod{10};

    /// Throws `std::system_error` when no thread can be started.
    Tick();

    /// Ends the thread, within a period.
    ~Tick();

    Tick(const Tick&) = delete;
    Tick& operator=(const Tick&) = delete;

private:
    friend class Sleeper;

    using WakeTime = std::atomic<std::int64_t>;

    /// The wake times stand side by side, so that a look at thousands stays in the processor's nearest cache.
    /// Each changes twice a batch of its thread at most: neighbours do not disturb each other.
    struct Row {
        static constexpr std::size_t kSeats = 64;
        std::array<WakeTime, kSeats> wakeAt_ns;
        std::array<Sleeper*, kSeats> sleepers{};
    };
    struct Seat {
        Row* row;
        std::size_t number;
    };

    Seat _Take(Sleeper& sleeper);
    void _GiveUp(Seat seat);
    void _Run();
    void _Look();

    CriticalSection seatsLock_;
    std::vector<std::unique_ptr<Row>>
        rows_;                     // guarded by seatsLock_, as is what stands in them but the times
    std::vector<Seat> freeSeats_;  // guarded by seatsLock_; has room for all
    std::atomic<bool> ending_{false};
    std::thread thread_;  // last: everything it uses is made before it starts
};

/// Where one thread of the library sleeps until there is something to do. Owned by the thread's owner, who
/// makes it before the thread and destroys it once that has been joined.
///
///     Sleeper sleeper;
///     thread = std::thread([&] {
///         while (running) {
///             sleeper.WakeAt(Sleeper::kNever);  // before looking, so that nothing is missed
///             if (!Work())
///                 sleeper.Sleep();
///         }
///     });
///     ...
///     sleeper.WakeAt(Sleeper::kNow);  // there is work: costs a store, and wakes nobody itself
///     ...
///     running = false;
///     sleeper.Rouse();
///     thread.join();
class Sleeper {
public:
    /// Times are nanoseconds of `MonotonicNow_ns`.
    static constexpr std::int64_t kNow = (std::numeric_limits<std::int64_t>::min)();
    static constexpr std::int64_t kNever = (std::numeric_limits<std::int64_t>::max)();

    /// From now on the tick looks here. Throws `std::system_error` when the tick's thread cannot be started.
    Sleeper();
    ~Sleeper();

    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    /// Lets the first tick from `time_ns` on wake the sleeper, and every further one until this is called
    /// again. Any thread; never waits.
    ///
    /// Sequentially consistent: a sleeper that calls it and then looks for work, and one that makes work and
    /// then calls it, cannot both miss the other. Where both do so under one lock,
    /// `std::memory_order_release` will do and spares the caller a wait for the cache line.
    void WakeAt(std::int64_t time_ns, std::memory_order order = std::memory_order_seq_cst) {
        wakeAt_ns_.store(time_ns, order);
    }

    /// Waits for a tick that finds the time come, or for `Rouse`; returns at once when there has been one
    /// since the last call. The owner's thread alone.
    void Sleep() { signal_.Wait(); }

    /// Wakes the sleeper itself, without the tick.
    void Rouse() { signal_.Send(); }

private:
    Signal signal_;
    ProcessWide<Tick> tick_;
    Tick::Seat seat_;
    Tick::WakeTime& wakeAt_ns_;
};

/// Nanoseconds of the process's high-resolution counter, which no step of the system clock moves.
std::int64_t MonotonicNow_ns();

}  // namespace camclock
