#include "apps/camclock/sources/CameraWatch.h"

#include <camclock/Utilities.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace camclock::app {

CameraWatch::CameraWatch(int number, StreamUrl url, TimingSettings timing,
                         const ConnectionSettings& connection, StreamSession::Consumer rows)
    : number_(number)
    , url_(std::move(url))
    , timing_(std::move(timing))
    , connection_(connection)
    , rows_(std::move(rows))
    , timeFilter_(url_.label + ": ") {
    timeFilter_.SetPacketTimeOut(timing_.packetTimeOut);
    timeFilter_.SetRtcpTimeOut(timing_.rtcpTimeOut);
    timeFilter_.SetSyncShift(timing_.syncShift);
    timeFilter_.RequireRTCP(timing_.requireRtcp);
    if (timing_.icmp)
        _StartProbing();
    if (timing_.expectedDifference)
        timeFilter_.CheckPollDifference(*timing_.expectedDifference);
    if (!timing_.timingLogDirectory.empty())
        timeFilter_.EnableTimeLogging(timing_.timingLogDirectory);
    timeFilter_.AssignShutdownHandler([this] { shutDown_ = true; });
}

void CameraWatch::_StartProbing() {
    const std::string& directory = timing_.probeLogDirectory;
    timeFilter_.UseICMP(Utilities::GetHostFromUrl(url_.location), timing_.pollInterval, directory,
                        !directory.empty());
    probing_ = true;
    // Without estimation nobody else tells what to expect, and the first measurement would wait for ever.
    if (!timing_.estimation && !timing_.expectedDifference)
        timeFilter_.CheckPollDifference(std::chrono::milliseconds(0));
}

CameraWatch::~CameraWatch() {
    Stop();
}

void CameraWatch::Start(Clock::time_point now) {
    delay_ = connection_.firstDelay;
    _Connect(now);
}

void CameraWatch::_Connect(Clock::time_point now) {
    anyFrame_ = false;
    shutDown_ = false;
    state_ = State::kConnecting;
    connectedAt_ = now;
    nextCheck_ = now;
    receiver_ = std::make_unique<RtspReceiver>(url_, connection_, [this](const StreamFormat& format) {
        const std::lock_guard<std::mutex> guard(sessionMutex_);
        session_ = std::make_shared<StreamSession>(timeFilter_, url_.label + " ", format, timing_,
                                                   [this](FrameRow row) {
                                                       anyFrame_ = true;
                                                       row.stream = number_;
                                                       rows_(row);
                                                   });
        return session_;
    });
    receiver_->Start();
}

std::optional<std::string> CameraWatch::Poll(Clock::time_point now) {
    if (probing_ && !timeFilter_.IsUsingProbe()) {
        probing_ = false;
        return fmt::format("{}: eleven ICMP measurements in a row failed; going on with the latency estimate",
                           url_.label);
    }
    switch (state_) {
    case State::kEnded: return std::nullopt;
    case State::kWaiting:
        if (now >= nextAttempt_)
            _Connect(now);
        return std::nullopt;
    case State::kConnecting:
    case State::kReceiving: break;
    }

    if (state_ == State::kConnecting && anyFrame_) {
        state_ = State::kReceiving;
        delay_ = connection_.firstDelay;
        failure_.reset();
    }
    if (std::optional<Failure> failure = _Check(now))
        return _Lose(std::move(*failure), now);
    return std::nullopt;
}

std::optional<Failure> CameraWatch::_Check(Clock::time_point now) {
    if (std::optional<Failure> failure = receiver_->Poll())
        return failure;
    if (shutDown_)
        return Failure{ExitCode::kStreamLost, "stream lost: 1,000 frames in a row had no usable time stamp",
                       "restart the camera, or use --reconnect"};
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
    if (now < nextCheck_)
        return std::nullopt;
    nextCheck_ = now + std::chrono::milliseconds(250);
    if (_Session()->ArrivalIsOk())
        return std::nullopt;
    return Failure{
        ExitCode::kTimeOut,
        fmt::format("time-out: no {} for too long",
                    timing_.requireRtcp ? "packet or no sender report" : "packet"),
        "look at the camera and the network, allow more with --packet-timeout, or use --reconnect"};
}

std::string CameraWatch::_Lose(Failure failure, Clock::time_point now) {
    receiver_.reset();
    failure_ = std::move(failure);
    std::string news = url_.label + ": " + failure_->Text();
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
    receiver_.reset();
    state_ = State::kEnded;
}

void CameraWatch::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    const std::lock_guard<std::mutex> guard(sessionMutex_);
    timing_.meanLatency = meanLatency;
    if (session_)
        session_->SetMeanLatency(meanLatency);
}

std::optional<StreamFormat> CameraWatch::Format() {
    const std::shared_ptr<StreamSession> session = _Session();
    return session ? std::optional<StreamFormat>(session->Format()) : std::nullopt;
}

std::optional<receiver::PictureFormat> CameraWatch::Picture() {
    const std::shared_ptr<StreamSession> session = _Session();
    return session ? session->Picture() : std::nullopt;
}

std::shared_ptr<StreamSession> CameraWatch::_Session() {
    const std::lock_guard<std::mutex> guard(sessionMutex_);
    return session_;
}

}  // namespace camclock::app
