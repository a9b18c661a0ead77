#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace camclock {

/// Whose turn is it to probe? One exchange runs at a time in the whole process, so that no probe reads the
/// replies meant for another: every raw socket gets a copy of all ICMP that reaches the host. Held through
/// `ProcessWide`. Taken before the lock of the process clock, never after.
///
/// Any thread. A wait for the turn ends early once it is no longer wanted, however many wait in front.
class ProbeTurn {
public:
    /// Waits for the turn while `wanted`; true when it was had, and then `GiveBack` follows.
    [[nodiscard]] bool Take(const std::atomic<bool>& wanted) {
        std::unique_lock<std::mutex> lock(mutex_);
        turn_.wait(lock, [&] { return !taken_ || !wanted; });
        if (!wanted) {
            turn_.notify_one();  // this wake-up may have been meant for one who can use it
            return false;
        }
        taken_ = true;
        return true;
    }

    void GiveBack() {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            taken_ = false;
        }
        turn_.notify_one();
    }

    /// Lets everybody who waits look at their `wanted` again; called after one was cleared.
    void LookAgain() {
        { const std::lock_guard<std::mutex> guard(mutex_); }  // none is between looking and waiting
        turn_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable turn_;
    bool taken_ = false;  // guarded by mutex_
};

}  // namespace camclock
