#pragma once

#include "logging/LogWrap.h"
#include "support/WaitableList.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <sstream>
#include <string>

namespace camclock::test {

/// What `CapturingSink`s write; it outlives them. While it is held, a write is recorded at once but does not
/// return before it gets a permit, so that a test decides how far the worker of an `AsynchronousLog` comes.
class CapturedLines : public WaitableList<std::string> {
public:
    ~CapturedLines() { Release(); }

    /// From now on every write waits for a permit.
    void Hold() {
        const std::lock_guard<std::mutex> guard(gateMutex_);
        held_ = true;
        permits_ = 0;
    }

    /// Lets `count` writes return.
    void Permit(std::size_t count) {
        {
            const std::lock_guard<std::mutex> guard(gateMutex_);
            permits_ += count;
        }
        gate_.notify_all();
    }

    /// Lets all writes return, now and later.
    void Release() {
        {
            const std::lock_guard<std::mutex> guard(gateMutex_);
            held_ = false;
        }
        gate_.notify_all();
    }

    void Write(std::string line) {
        Append(std::move(line));
        std::unique_lock<std::mutex> lock(gateMutex_);
        gate_.wait_for(lock, kDeadline, [this] { return !held_ || permits_ > 0; });
        if (held_ && permits_ > 0)
            --permits_;
    }

private:
    std::mutex gateMutex_;
    std::condition_variable gate_;
    bool held_ = false;        // guarded by gateMutex_
    std::size_t permits_ = 0;  // guarded by gateMutex_
};

/// A sink that keeps every message in a `CapturedLines`; a log may own and destroy it.
class CapturingSink : public LogWrap {
public:
    explicit CapturingSink(CapturedLines& lines)
        : lines_(lines) {}

    void Write(std::stringstream& message) override { lines_.Write(message.str()); }

private:
    CapturedLines& lines_;
};

}  // namespace camclock::test
