#include <camclock/Receiver.h>

#include "receiver/CameraState.h"
#include "receiver/StreamSession.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace camclock::receiver {

struct Stream::State {
    State(std::shared_ptr<CameraState> camera, std::string id, const Format& format, Sink sink)
        : session(std::move(camera), std::move(id), format, std::move(sink), Now()) {}

    std::mutex mutex;  // guards the session
    StreamSession session;
};

Stream::Stream(std::shared_ptr<State> state)
    : state_(std::move(state)) {}

Stream::~Stream() {
    Sink last;  // it ends outside the lock, with all that the application has put into it
    const std::lock_guard<std::mutex> guard(state_->mutex);
    last = state_->session.Close();
}

void Stream::FeedRtp(const void* datagram, std::size_t size, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.TakeRtp(static_cast<const std::uint8_t*>(datagram), datagram == nullptr ? 0 : size,
                            arrival);
}

void Stream::FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.TakeRtcp(static_cast<const std::uint8_t*>(datagram), datagram == nullptr ? 0 : size,
                             arrival);
}

void Stream::FeedReport(std::uint32_t ssrc, std::uint64_t ntp, std::uint32_t rtp_ts, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.TakeReport({ssrc, ntp, rtp_ts, arrival});
}

void Stream::FeedFrame(const Frame& assembled) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.TakeFrame(assembled);
}

void Stream::Flush() {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.Flush();
}

void Stream::Restarted() {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->session.Restarted();
}

std::optional<Frame> Stream::Find(std::uint32_t rtp_ts) const {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->session.Find(rtp_ts);
}

std::optional<TimePoint> Stream::Map(std::uint32_t rtp_ts) const {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->session.Map(rtp_ts);
}

Statistics Stream::Snapshot() const {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->session.Snapshot();
}

struct Camera::State {
    std::shared_ptr<CameraState> shared;
    void Add(const std::shared_ptr<Stream::State>& stream) {
        const std::lock_guard<std::mutex> guard(mutex_);
        _DropEnded();
        streams_.push_back(stream);
    }

    std::vector<std::shared_ptr<Stream::State>> Streams() {
        const std::lock_guard<std::mutex> guard(mutex_);
        _DropEnded();
        std::vector<std::shared_ptr<Stream::State>> alive;
        for (const std::weak_ptr<Stream::State>& one : streams_) {
            if (auto stream = one.lock())
                alive.push_back(std::move(stream));
        }
        return alive;
    }

private:
    void _DropEnded() {
        streams_.erase(std::remove_if(streams_.begin(), streams_.end(),
                                      [](const auto& stream) { return stream.expired(); }),
                       streams_.end());
    }

    std::mutex mutex_;                                   // guards the streams
    std::vector<std::weak_ptr<Stream::State>> streams_;  // the application owns them
};

Camera::Camera(std::string name, Settings settings, std::function<void(const Event&)> onEvent)
    : state_(std::make_unique<State>()) {
    state_->shared = std::make_shared<CameraState>(std::move(name), std::move(settings), std::move(onEvent));
}

Camera::~Camera() {
    state_->shared->Close();
}

std::shared_ptr<Stream> Camera::AddStream(std::string id, const Format& format, Stream::Sink sink) {
    auto state = std::make_shared<Stream::State>(state_->shared, std::move(id), format, std::move(sink));
    std::shared_ptr<Stream> stream(new Stream(state));
    state_->Add(state);
    return stream;
}

void Camera::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    state_->shared->SetMeanLatency(meanLatency);
}

void Camera::SetLeastLatency(std::chrono::microseconds leastLatency) {
    state_->shared->SetLeastLatency(leastLatency);
}

void Camera::Poll() {
    Poll(Now());
}

void Camera::Poll(TimePoint now) {
    for (const std::shared_ptr<Stream::State>& stream : state_->Streams()) {
        const std::lock_guard<std::mutex> guard(stream->mutex);
        stream->session.Poll(now);
    }
}

}  // namespace camclock::receiver
