#pragma once

#include <camclock/MediaPacketStruct.h>

#include <deque>
#include <memory>
#include <mutex>

namespace camclock::bench {

/// The packet queue as one would write it at first: handles are copied in and out under the lock.
class PlainQueue {
public:
    explicit PlainQueue(int capacity)
        : capacity_(capacity) {}

    bool EnqueuePacket(std::shared_ptr<MediaPacketStruct> packet) {
        const std::lock_guard<std::mutex> guard(mutex_);
        const bool stored = packet != nullptr;
        if (stored)
            packets_.push_back(packet);
        if (packets_.size() > static_cast<std::size_t>(capacity_))
            packets_.pop_front();
        return stored;
    }

    std::shared_ptr<MediaPacketStruct> DequeueNextPacket() {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (packets_.empty())
            return nullptr;
        std::shared_ptr<MediaPacketStruct> packet = packets_.front();
        packets_.pop_front();
        return packet;
    }

private:
    std::deque<std::shared_ptr<MediaPacketStruct>> packets_;
    int capacity_;
    std::mutex mutex_;
};

}  // namespace camclock::bench
