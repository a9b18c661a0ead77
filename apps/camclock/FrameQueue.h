#pragma once

#include "FrameRow.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace camclock::app {

/// Rows on their way from the receiving threads to the one that prints. A consumer that cannot keep up loses
/// the oldest rows, and is told how many; it never holds up reception.
class FrameQueue {
public:
    explicit FrameQueue(std::size_t capacity)
        : capacity_(capacity) {}

    void Push(const FrameRow& row);

    /// All rows there are; waits for the first of them, but not past `timeOut`.
    std::vector<FrameRow> Take(std::chrono::milliseconds timeOut);

    /// Rows that were lost so far.
    std::uint64_t Dropped();

private:
    const std::size_t capacity_;
    std::mutex mutex_;  // guards the fields below
    std::condition_variable filled_;
    std::deque<FrameRow> rows_;
    std::uint64_t dropped_ = 0;
};

}  // namespace camclock::app
