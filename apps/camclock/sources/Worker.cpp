#include "apps/camclock/sources/Worker.h"

#include <utility>

namespace camclock::app {

Worker::Worker()
    : thread_(&Worker::_Run, this) {}

Worker::~Worker() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Worker::Post(std::function<void()> job) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        jobs_.push_back(std::move(job));
    }
    changed_.notify_all();
}

bool Worker::WaitUntilIdle(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_until(lock, deadline, [this] { return jobs_.empty() && !busy_; });
}

void Worker::_Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
        if (jobs_.empty())
            return;
        std::list<std::function<void()>> job;
        job.splice(job.begin(), jobs_, jobs_.begin());
        busy_ = true;
        lock.unlock();
        job.front()();
        job.clear();  // what the job holds may take its time to go
        lock.lock();
        busy_ = false;
        changed_.notify_all();
    }
}

}  // namespace camclock::app
