#include "FrameQueue.h"

namespace camclock::app {

void FrameQueue::Push(const FrameRow& row) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        rows_.push_back(row);
        if (rows_.size() > capacity_) {
            rows_.pop_front();
            ++dropped_;
        }
    }
    filled_.notify_one();
}

std::vector<FrameRow> FrameQueue::Take(std::chrono::milliseconds timeOut) {
    std::unique_lock<std::mutex> lock(mutex_);
    filled_.wait_for(lock, timeOut, [this] { return !rows_.empty(); });
    std::vector<FrameRow> taken(rows_.begin(), rows_.end());
    rows_.clear();
    return taken;
}

std::uint64_t FrameQueue::Dropped() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return dropped_;
}

}  // namespace camclock::app
