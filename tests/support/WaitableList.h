#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace camclock::test {

/// How long a test waits for an event before it gives up; never a time that a passing test uses up.
inline constexpr std::chrono::seconds kDeadline{30};

/// Waits until `condition()`, which is asked again and again; false when the deadline passes first. For what
/// nobody tells of; where an event can be waited for, wait for that.
template <class Condition>
[[nodiscard]] bool WaitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// A list that one thread fills while another waits for what it needs. Every
/// operation may be called from any thread.
template <class Item>
class WaitableList {
public:
    void Append(Item item) {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            items_.push_back(std::move(item));
        }
        appended_.notify_all();
    }

    std::vector<Item> All() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return items_;
    }

    /// The items so far, which are forgotten.
    std::vector<Item> Drain() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return std::exchange(items_, {});
    }

    /// Waits until `wanted(items)`; false when the deadline passes first.
    template <class Condition>
    bool WaitUntil(Condition wanted) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return appended_.wait_for(lock, kDeadline, [&] { return wanted(items_); });
    }

    /// Waits for the `count`-th item.
    bool WaitFor(std::size_t count) const {
        return WaitUntil([count](const std::vector<Item>& items) { return items.size() >= count; });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable appended_;
    std::vector<Item> items_;  // guarded by mutex_
};

}  // namespace camclock::test
