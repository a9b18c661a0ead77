#pragma once

#include "support/WaitableList.h"
#include "util/Tick.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

namespace camclock::test {

/// A thread that sleeps until its sleeper wakes it, and tells each time.
class SleepingThread {
public:
    SleepingThread() {
        thread_ = std::thread([this] {
            for (;;) {
                sleeper.Sleep();
                if (!running_)
                    return;
                if (!staysDue)
                    sleeper.WakeAt(Sleeper::kNever);
                wakeUps.Append(std::chrono::steady_clock::now());
            }
        });
    }

    ~SleepingThread() {
        running_ = false;
        sleeper.Rouse();
        thread_.join();
    }

    SleepingThread(const SleepingThread&) = delete;
    SleepingThread& operator=(const SleepingThread&) = delete;

    std::size_t WakeUps() const { return wakeUps.All().size(); }

    Sleeper sleeper;
    std::atomic<bool> staysDue{false};
    WaitableList<std::chrono::steady_clock::time_point> wakeUps;

private:
    std::atomic<bool> running_{true};
    std::thread thread_;
};

/// Lets `count` whole ticks pass; false when the deadline comes first.
[[nodiscard]] inline bool LetTicksPass(std::size_t count) {
    SleepingThread counter;
    counter.staysDue = true;
    counter.sleeper.WakeAt(Sleeper::kNow);
    return counter.wakeUps.WaitFor(count + 1);
}

}  // namespace camclock::test
