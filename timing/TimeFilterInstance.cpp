#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Categories.h"
#include "logging/DirectMessage.h"
#include "logging/Log4CppWrap.h"
#include "timing/LatencyWindow.h"

#include <camclock/TimeFilter.h>

#include <utility>

namespace camclock {
namespace {

constexpr std::uint64_t kPacketsPerTrace = 200;  // one in 8 s at 25 frames/s

}  // namespace

TimeFilterInstance::TimeFilterInstance(TimeFilter& timeFilter)
    : timeFilter_(timeFilter)
    , latencyWindow_(std::make_unique<LatencyWindow>())
    , log_(std::make_unique<AsynchronousLog>(new Log4CppWrap(categories::TimeFilterInstance()))) {
    _LogInfo("TimeFilterInstance::TimeFilterInstance");
}

TimeFilterInstance::~TimeFilterInstance() {
    _LogInfo("TimeFilterInstance::~TimeFilterInstance");
}

void TimeFilterInstance::UpdateTiming(std::shared_ptr<TimingData> timing, MediaPacket::Frametype frameType) {
    if (!timing)
        return;
    timingData_ = std::move(timing);
    frameType_ = frameType;
    ++packetCount_;
    TOR_host_ = timingData_->TOR_host;
    if (packetCount_ == 1)
        RTP_freq_ = static_cast<double>(timingData_->RTPFreq);

    _RunFollowProcess();
    const std::exception_ptr thrown = _UpdateStablePts();
    if (doTimeFiltering_ && doEstimation_) {
        _RunEstimate();
        _CheckProbeTime();
    }
    _WriteLog();
    if (packetCount_ % kPacketsPerTrace == 0 || packetCount_ == 1)
        TraceCurrentPacket();
    if (thrown)
        std::rethrow_exception(thrown);
}

bool TimeFilterInstance::TimeEstimatesInitialized() {
    return timeFilter_.DIsLocked() || !doTimeFiltering_;
}

void TimeFilterInstance::DoEstimation(bool on) {
    doEstimation_ = on;
}

void TimeFilterInstance::DoTimeFiltering(bool on) {
    doTimeFiltering_ = on;
}

void TimeFilterInstance::EnableTimeOutCheck(bool on) {
    timeOutCheck_ = on;
}

void TimeFilterInstance::SetStreamId(std::string streamId) {
    streamId_ = std::move(streamId);
}

std::string TimeFilterInstance::GetStreamId() const {
    return streamId_;
}

MediaPacket::TimeEstimateTrustIndex TimeFilterInstance::GetCurrentEstimationQuality() const {
    return trustIndex_;
}

TimePoint TimeFilterInstance::GetCurrentTOC_Host() const {
    return TOC_host_;
}

std::int64_t TimeFilterInstance::GetCurrentStablePTS() const {
    return stablePts_;
}

bool TimeFilterInstance::_InfoEnabled() {
    return InfoEnabled(categories::TimeFilterInstance());
}

void TimeFilterInstance::_LogInfo(const std::string& message) const {
    if (_InfoEnabled())
        WriteInfo(categories::TimeFilterInstance(), streamId_ + message);
}

}  // namespace camclock
