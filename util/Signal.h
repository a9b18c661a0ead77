#pragma once

#include <atomic>

#if defined(__linux__)
#include <semaphore.h>
#else
#include <condition_variable>
#include <mutex>
#endif

namespace camclock {

/// Wakes one thread. A signal that comes while the thread is awake is kept, several of them count as one.
///
/// Any thread sends; one waits.
class Signal {
public:
#if defined(__linux__)
    // Shared between processes in name only: the kernel keeps the waiters of a process's private semaphores
    // in few lists (16 on a machine with two processors), where a wake-up would have to pass by hundreds of
    // the thousands of threads that a recorder has asleep.
    Signal() {
        sem_init(&semaphore_, 1, 0);
    }
    ~Signal() {
        sem_destroy(&semaphore_);
    }
#else
    Signal() = default;
    ~Signal() = default;
#endif
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void Send() {
        if (!sent_.exchange(true))
            _Post();
    }

    /// Returns once a signal has been sent since the last return. What was done before that signal, or before
    /// any later one up to this return, is seen after it.
    void Wait() {
        _Await();
        sent_ = false;
    }

private:
#if defined(__linux__)
    void _Post() {
        sem_post(&semaphore_);
    }
    void _Await() {
        while (sem_wait(&semaphore_) != 0) {  // a handler of the application's was run
        }
    }

    sem_t semaphore_;
#else
    void _Post() {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            posted_ = true;
        }
        condition_.notify_one();
    }
    void _Await() {
        std::unique_lock<std::mutex> lock(mutex_);
        condition_.wait(lock, [this] { return posted_; });
        posted_ = false;
    }

    std::mutex mutex_;
    std::condition_variable condition_;
    bool posted_ = false;  // guarded by mutex_
#endif
    std::atomic<bool> sent_{false};
};

}  // namespace camclock
