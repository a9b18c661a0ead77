#pragma once

#include <camclock/Export.h>

#include <deque>
#include <memory>

namespace camclock {

struct MediaPacketStruct;  // the application's packet record: MediaPacketStruct.h, or one of its own

/// Which packet does the consumer take next? A bounded first-in first-out queue between the thread that
/// receives packets and the thread that consumes them. When it is full the oldest packet is dropped: a slow
/// consumer sees the most recent packets and never holds up the producer.
///
/// Owned by the application. Any number of threads may enqueue and dequeue at the same time; each operation
/// is one step under the queue's own lock, and none waits for a packet to come. The destructor must not
/// overlap any call.
///
///     camclock::MediaPacketQueue queue(50);
///     queue.EnqueuePacket(std::make_shared<camclock::MediaPacketStruct>());     // receiving thread
///     while (auto packet = queue.DequeueNextPacket()) { Consume(*packet); }     // consuming thread, polling
class CAMCLOCK_API MediaPacketQueue {
public:
    /// An empty queue that keeps the `capacity` newest packets. 0 drops every packet as soon as it has come
    /// in; a negative capacity never drops any.
    explicit MediaPacketQueue(int capacity = 5);

    /// Releases the packets that it still holds.
    ~MediaPacketQueue();

    MediaPacketQueue(const MediaPacketQueue&) = delete;
    MediaPacketQueue& operator=(const MediaPacketQueue&) = delete;

    /// Appends `packet`; then, if the queue holds more than its capacity, drops the oldest one. False for an
    /// empty handle, which is not stored; true otherwise, also when capacity 0 dropped the packet at once.
    /// Throws `std::bad_alloc` when memory runs out; the queue is then as it was.
    bool EnqueuePacket(std::shared_ptr<MediaPacketStruct> packet);

    /// Takes the oldest packet out; an empty handle when there is none.
    std::shared_ptr<MediaPacketStruct> DequeueNextPacket();

private:
    struct Lock;

    std::deque<std::shared_ptr<MediaPacketStruct>> packets_;  // guarded by lock_; the front is the oldest
    int capacity_;
    std::unique_ptr<Lock> lock_;
};

}  // namespace camclock
