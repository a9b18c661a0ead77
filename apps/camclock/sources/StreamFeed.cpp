#include "apps/camclock/sources/StreamFeed.h"

#include "receiver/RtpReader.h"

#include <cstdint>
#include <utility>

namespace camclock::app {

StreamFeed::StreamFeed(std::shared_ptr<receiver::Stream> stream, const receiver::Format& format)
    : stream_(std::move(stream))
    , headers_(format.codec, format.headers) {}

void StreamFeed::FeedRtp(const void* datagram, std::size_t size, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!stream_)
        return;
    stream_->FeedRtp(datagram, size, arrival);
    if (!headers_.Picture())
        if (const auto packet = receiver::ReadRtp(static_cast<const std::uint8_t*>(datagram), size))
            headers_.Take(packet->payload, packet->size);
}

void StreamFeed::FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (stream_)
        stream_->FeedRtcp(datagram, size, arrival);
}

void StreamFeed::Close() {
    const std::lock_guard<std::mutex> guard(mutex_);
    stream_.reset();
}

std::optional<receiver::PictureFormat> StreamFeed::Picture() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return headers_.Picture();
}

void StreamFeed::TakeFallback(unsigned int width, unsigned int height) {
    const std::lock_guard<std::mutex> guard(mutex_);
    headers_.TakeFallback(width, height);
}

}  // namespace camclock::app
