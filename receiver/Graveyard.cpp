#include "receiver/Graveyard.h"

#include <system_error>
#include <utility>

namespace camclock::receiver {

Graveyard::~Graveyard() {
    std::thread last;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        last = std::move(thread_);
    }
    if (last.joinable())
        last.join();
}

void Graveyard::Bury(std::unique_ptr<MedianClock> clock) {
    const std::lock_guard<std::mutex> guard(mutex_);
    waiting_.push_back(std::move(clock));
    _Start();
}

bool Graveyard::IsFull() {
    const std::lock_guard<std::mutex> guard(mutex_);
    _Start();
    return waiting_.size() + ending_ >= kMost;
}

/// Starts the thread where there is something to end; with the lock held.
void Graveyard::_Start() {
    if (running_ || waiting_.empty())
        return;
    if (thread_.joinable())
        thread_.join();  // it has left its loop
    try {
        thread_ = std::thread(&Graveyard::_Run, this);
        running_ = true;
    } catch (const std::system_error&) {
        // No thread to be had now: the next call tries again.
    }
}

void Graveyard::_Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!waiting_.empty()) {
        std::unique_ptr<MedianClock> clock = std::move(waiting_.back());
        waiting_.pop_back();
        ending_ = 1;
        lock.unlock();
        clock.reset();
        lock.lock();
        ending_ = 0;
    }
    running_ = false;
}

}  // namespace camclock::receiver
