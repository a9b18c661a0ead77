#include "apps/camclock/sources/CameraWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace camclock::app {

CameraWatch::CameraWatch(std::string name, Numbers numbers, StreamUrl url, TimingSettings timing,
                         const ConnectionSettings& connection, SourceMaker makeSource, Rows rows)
    : name_(std::move(name))
    , numbers_(numbers)
    , url_(std::move(url))
    , timing_(std::move(timing))
    , connection_(connection)
    , makeSource_(std::move(makeSource))
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
    timeFilter_.UseICMP(url_.host, timing_.pollInterval, directory, !directory.empty());
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
    source_ = makeSource_(worker_, [this](const receiver::Format& format) { return _Take(format); });
    source_->Start();
}

/// On a thread of the source.
std::shared_ptr<StreamSession> CameraWatch::_Take(const receiver::Format& format) {
    const bool audio = format.media == "audio";
    if (format.media != "video" && !(audio && numbers_.audio))
        return nullptr;
    const int number = audio ? *numbers_.audio : numbers_.video;
    const std::lock_guard<std::mutex> guard(sessionMutex_);
    auto session = std::make_shared<StreamSession>(
        timeFilter_, url_.label + (audio ? " audio " : " "), format, timing_,
        [this, number, rate = format.clockRate_Hz](const receiver::Frame& frame) {
            anyFrame_ = true;
            rows_({number, rate, frame});
        });
    sessions_[number] = session;
    return session;
}

std::vector<std::string> CameraWatch::Poll(Clock::time_point now) {
    std::vector<std::string> news;
    if (probing_ && !timeFilter_.IsUsingProbe()) {
        probing_ = false;
        news.push_back(fmt::format(
            "{}: eleven ICMP measurements in a row failed; going on with the latency estimate", name_));
    }
    switch (state_) {
    case State::kEnded: return news;
    case State::kWaiting:
        if (now >= nextAttempt_)
            _Connect(now);
        return news;
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
        news.push_back(_Lose(std::move(*failure), now));
    return news;
}

std::optional<Failure> CameraWatch::_Check(Clock::time_point now) {
    if (std::optional<Failure> failure = source_->Poll())
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
    return _CheckArrival(now);
}

std::optional<Failure> CameraWatch::_CheckArrival(Clock::time_point now) {
    const std::shared_ptr<StreamSession> session = _Session(numbers_.video);
    if (!session)
        return std::nullopt;
    if (timing_.requireRtcp && !session->Snapshot().lastReport_host &&
        now - receivingSince_ > timing_.rtcpTimeOut)
        return Failure{
            ExitCode::kTimeOut,
            fmt::format("time-out: no sender report within {} ms", timing_.rtcpTimeOut.count()),
            "switch RTCP on in the camera, allow more with --rtcp-timeout, or leave --require-rtcp out"};
    if (session->ArrivalIsOk())
        return std::nullopt;
    return Failure{
        ExitCode::kTimeOut,
        fmt::format("time-out: no {} for too long",
                    timing_.requireRtcp ? "packet or no sender report" : "packet"),
        "look at the camera and the network, allow more with --packet-timeout, or use --reconnect"};
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
    if (source_)
        source_->Close();
    state_ = State::kEnded;
}

void CameraWatch::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    const std::lock_guard<std::mutex> guard(sessionMutex_);
    timing_.meanLatency = meanLatency;
    for (const auto& session : sessions_)
        session.second->SetMeanLatency(meanLatency);
}

std::optional<CameraWatch::StreamFacts> CameraWatch::Facts(int stream) {
    const std::shared_ptr<StreamSession> session = _Session(stream);
    if (!session)
        return std::nullopt;
    return StreamFacts{session->Format(), session->Picture(), session->Snapshot()};
}

std::shared_ptr<StreamSession> CameraWatch::_Session(int stream) {
    const std::lock_guard<std::mutex> guard(sessionMutex_);
    const auto found = sessions_.find(stream);
    return found == sessions_.end() ? nullptr : found->second;
}

}  // namespace camclock::app
