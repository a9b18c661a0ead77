#include "apps/camclock/sources/CameraWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace camclock::app {

CameraWatch::CameraWatch(std::string name, std::shared_ptr<receiver::Camera> camera, Numbers numbers,
                         StreamUrl url, ConnectionSettings connection,
                         std::optional<std::chrono::milliseconds> requireReports, SourceMaker makeSource,
                         Rows rows)
    : name_(std::move(name))
    , camera_(std::move(camera))
    , numbers_(numbers)
    , url_(std::move(url))
    , connection_(std::move(connection))
    , requireReports_(requireReports)
    , makeSource_(std::move(makeSource))
    , rows_(std::move(rows)) {}

CameraWatch::~CameraWatch() {
    Stop();
}

void CameraWatch::Start(Clock::time_point now) {
    delay_ = connection_.firstDelay;
    _Connect(now);
}

void CameraWatch::_Connect(Clock::time_point now) {
    anyFrame_ = false;
    silent_ = false;
    state_ = State::kConnecting;
    connectedAt_ = now;
    nextCheck_ = now;
    source_ = makeSource_(worker_, [this](const receiver::Format& format) { return _Take(format); });
    source_->Start();
}

std::string CameraWatch::StreamId(const std::string& media) const {
    const std::string label = name_ == url_.label ? "" : url_.label;
    return media == "video" && !label.empty() ? label : label.empty() ? media : label + " " + media;
}

/// On a thread of the source.
std::shared_ptr<StreamFeed> CameraWatch::_Take(const receiver::Format& format) {
    const bool audio = format.media == "audio";
    if (format.media != "video" && !(audio && numbers_.audio))
        return nullptr;
    const int number = audio ? *numbers_.audio : numbers_.video;
    const std::lock_guard<std::mutex> guard(knownMutex_);
    Known& known = known_[number];
    const bool goesOn = known.stream && known.format.encoding == format.encoding &&
                        known.format.payloadType == format.payloadType &&
                        known.format.clockRate_Hz == format.clockRate_Hz;
    known.format = format;
    if (goesOn)
        known.stream->Restarted();
    else
        known.stream = camera_->AddStream(
            StreamId(format.media), format,
            [this, audio, number, rate = format.clockRate_Hz](const receiver::Frame& frame) {
                anyFrame_ = anyFrame_ || !audio;
                rows_({number, rate, frame});
            });
    known.feed = std::make_shared<StreamFeed>(known.stream, format);
    return known.feed;
}

std::vector<std::string> CameraWatch::Poll(Clock::time_point now) {
    switch (state_) {
    case State::kEnded: return {};
    case State::kWaiting:
        if (now >= nextAttempt_)
            _Connect(now);
        return {};
    case State::kConnecting:
    case State::kReceiving: break;
    }

    if (state_ == State::kConnecting && anyFrame_) {
        state_ = State::kReceiving;
        receivingSince_ = now;
        road_ = source_->Road();
        delay_ = connection_.firstDelay;
        failure_.reset();
    }
    if (std::optional<Failure> failure = _Check(now))
        return {_Lose(std::move(*failure), now)};
    return {};
}

void CameraWatch::OnSilence(const std::string& streamId) {
    silent_ = silent_ || streamId == StreamId("video");
}

std::optional<Failure> CameraWatch::_Check(Clock::time_point now) {
    if (std::optional<Failure> failure = source_->Poll())
        return failure;
    if (state_ == State::kConnecting) {
        if (now - connectedAt_ < connection_.connectTimeOut)
            return std::nullopt;
        return Failure{
            ExitCode::kTimeOut,
            fmt::format("time-out: no video arrived within {} ms", connection_.connectTimeOut.count()),
            connection_.transport == Transport::kUdp
                ? "a firewall may stop UDP: try --transport tcp"
                : "look whether the camera is switched on and its stream enabled"};
    }
    if (silent_)
        return Failure{
            ExitCode::kTimeOut, "time-out: no packet for too long",
            "look at the camera and the network, allow more with --packet-timeout, or use --reconnect"};
    return requireReports_ ? _CheckReports(now) : std::nullopt;
}

std::optional<Failure> CameraWatch::_CheckReports(Clock::time_point now) {
    if (now < nextCheck_)
        return std::nullopt;
    nextCheck_ = now + std::chrono::milliseconds(250);
    auto without = std::chrono::duration_cast<Ticks>(now - receivingSince_);
    if (const auto facts = Facts(numbers_.video))
        if (const auto last = facts->statistics.lastReport_host)
            without = std::min(without, receiver::Now() - *last);
    if (without <= *requireReports_)
        return std::nullopt;
    return Failure{
        ExitCode::kTimeOut, fmt::format("time-out: no sender report within {} ms", requireReports_->count()),
        "switch RTCP on in the camera, allow more with --rtcp-timeout, or leave --require-rtcp out"};
}

std::string CameraWatch::_Lose(Failure failure, Clock::time_point now) {
    source_->Close();
    failure_ = std::move(failure);
    std::string news = name_ + ": " + failure_->Text();
    if (!connection_.reconnect) {
        state_ = State::kEnded;
        return news;
    }
    state_ = State::kWaiting;
    nextAttempt_ = now + delay_;
    news += fmt::format(" (next attempt in {:.1f} s)", static_cast<double>(delay_.count()) / 1000.0);
    delay_ = std::min(delay_ * 2, connection_.longestDelay);
    return news;
}

void CameraWatch::Stop() {
    state_ = State::kEnded;
    if (!source_)
        return;
    source_->Close();
    const std::lock_guard<std::mutex> guard(knownMutex_);
    for (const auto& known : known_)
        known.second.stream->Flush();
}

std::optional<CameraWatch::StreamFacts> CameraWatch::Facts(int stream) {
    const std::lock_guard<std::mutex> guard(knownMutex_);
    const auto found = known_.find(stream);
    if (found == known_.end())
        return std::nullopt;
    const Known& known = found->second;
    return StreamFacts{known.format, known.feed->Picture(), known.stream->Snapshot()};
}

}  // namespace camclock::app
