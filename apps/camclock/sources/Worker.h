#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace camclock::app {

/// A thread that does jobs one after the other, so that nobody else has to wait for them: connecting to a
/// dead camera, and leaving it, can take many seconds.
///
/// Any thread may post. The destructor waits for all jobs.
class Worker {
public:
    Worker();
    ~Worker();

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Post(std::function<void()> job);

    /// True when nothing is left to do; waits for that until `deadline`.
    bool WaitUntilIdle(std::chrono::steady_clock::time_point deadline);

private:
    void _Run();

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::list<std::function<void()>> jobs_;
    bool busy_ = false;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace camclock::app
