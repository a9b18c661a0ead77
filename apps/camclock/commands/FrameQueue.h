#pragma once

#include "apps/camclock/sources/FrameRow.h"

#include <camclock/MediaPacketQueue.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace camclock {

/// The program's own packet record: what goes through its queue are rows.
struct MediaPacketStruct {
    app::FrameRow row;
};

}  // namespace camclock

namespace camclock::app {

/// Rows on their way from the receiving threads to the one that prints: a `MediaPacketQueue`, which a
/// consumer may wait at. One that cannot keep up loses the oldest rows, and never holds up reception.
class FrameQueue {
public:
    explicit FrameQueue(int capacity)
        : queue_(capacity) {}

    /// Any thread.
    void Push(const FrameRow& row);

    /// All rows there are; waits for the first of them, but not past `timeOut`. One thread.
    std::vector<FrameRow> Take(std::chrono::milliseconds timeOut);

    /// Rows that were lost. It counts what was pushed and not taken: ask when nobody pushes any more and all
    /// that was left has been taken.
    std::uint64_t Dropped() const { return pushed_ - taken_; }

private:
    MediaPacketQueue queue_;
    std::atomic<std::uint64_t> pushed_{0};
    std::uint64_t taken_ = 0;

    std::mutex mutex_;  // guards news_; the queue has a lock of its own
    std::condition_variable wake_;
    bool news_ = false;  // something was pushed since the last Take
};

}  // namespace camclock::app
