// An application with a packet record of its own: it includes the queue only. The record bears another name
// here, since one program can define camclock::MediaPacketStruct only once.
#include <camclock/MediaPacketQueue.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace camclock {
namespace {

struct OwnRecord {
    std::string text;
};

TEST(OwnPacketRecord, PassesThroughTheQueueWithoutTheLibrarysHeader) {
    MediaPacketQueue queue;
    const auto record = std::make_shared<OwnRecord>(OwnRecord{"one packet"});
    // What the handle points to is the application's matter; the queue never looks.
    queue.EnqueuePacket(
        std::shared_ptr<MediaPacketStruct>(record, reinterpret_cast<MediaPacketStruct*>(record.get())));
    const auto taken = queue.DequeueNextPacket();
    EXPECT_EQ(reinterpret_cast<OwnRecord*>(taken.get())->text, "one packet");
}

}  // namespace
}  // namespace camclock
