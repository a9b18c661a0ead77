#include "apps/camclock/commands/FrameQueue.h"

#include <memory>

namespace camclock::app {

void FrameQueue::Push(const FrameRow& row) {
    auto packet = std::make_shared<MediaPacketStruct>();
    packet->row = row;
    ++pushed_;
    queue_.EnqueuePacket(std::move(packet));
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        news_ = true;
    }
    wake_.notify_one();
}

std::vector<FrameRow> FrameQueue::Take(std::chrono::milliseconds timeOut) {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait_for(lock, timeOut, [this] { return news_; });
        news_ = false;
    }
    std::vector<FrameRow> rows;
    while (const std::shared_ptr<MediaPacketStruct> packet = queue_.DequeueNextPacket())
        rows.push_back(packet->row);
    taken_ += rows.size();
    return rows;
}

}  // namespace camclock::app
