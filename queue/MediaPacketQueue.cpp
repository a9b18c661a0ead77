#include <camclock/MediaPacketQueue.h>

#include "util/CriticalSection.h"

#include <cstdint>
#include <mutex>
#include <utility>

namespace camclock {

struct MediaPacketQueue::Lock {
    CriticalSection section;
};

MediaPacketQueue::MediaPacketQueue(int capacity)
    : capacity_(capacity)
    , lock_(std::make_unique<Lock>()) {}

MediaPacketQueue::~MediaPacketQueue() = default;

bool MediaPacketQueue::EnqueuePacket(std::shared_ptr<MediaPacketStruct> packet) {
    // Destroyed after the guard: the end of a dropped record is the application's code and may take its time,
    // or even use this queue.
    std::shared_ptr<MediaPacketStruct> dropped;

    const std::lock_guard<CriticalSection> guard(lock_->section);
    const bool enqueued = packet != nullptr;
    if (enqueued) {
        packets_.push_back(std::move(packet));
    }
    // Deliberate: a negative capacity widens to a huge unsigned one, which no queue ever exceeds
    // (MediaPacketQueue.NegativeCapacityNeverDrops).
    if (packets_.size() > static_cast<std::uint64_t>(std::int64_t{capacity_})) {
        dropped = std::move(packets_.front());
        packets_.pop_front();
    }
    return enqueued;
}

std::shared_ptr<MediaPacketStruct> MediaPacketQueue::DequeueNextPacket() {
    const std::lock_guard<CriticalSection> guard(lock_->section);
    if (packets_.empty()) {
        return nullptr;
    }
    std::shared_ptr<MediaPacketStruct> oldest = std::move(packets_.front());
    packets_.pop_front();
    return oldest;
}

}  // namespace camclock
