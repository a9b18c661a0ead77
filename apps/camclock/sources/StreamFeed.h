#pragma once

#include "receiver/PictureHeaders.h"

#include <camclock/Receiver.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>

namespace camclock::app {

/// The door between one connection and one stream. It is closed when the connection is given up, so that what
/// a dying pipeline still delivers no longer reaches the stream; and it looks for the pictures' size in what
/// passes.
///
/// Any thread; a call takes the object's lock.
class StreamFeed {
public:
    StreamFeed(std::shared_ptr<receiver::Stream> stream, const receiver::Format& format);

    void FeedRtp(const void* datagram, std::size_t size, TimePoint arrival);
    void FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival);

    /// Nothing is fed any more once it returns.
    void Close();

    /// What the pictures are like, as far as the stream's headers have told.
    std::optional<receiver::PictureFormat> Picture() const;

    /// A size that the description tells beside the headers; it counts when those tell none.
    void TakeFallback(unsigned int width, unsigned int height);

private:
    mutable std::mutex mutex_;  // guards all below
    std::shared_ptr<receiver::Stream> stream_;
    receiver::PictureHeaders headers_;
};

}  // namespace camclock::app
