#include "receiver/MedianClock.h"

#include "receiver/TimeArithmetic.h"

#include <camclock/SyncPoint.h>
#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/TimingData.h>

#include <mutex>

namespace camclock::receiver {
namespace {

std::shared_ptr<SyncPoint> SyncPointOf(const Report& report) {
    auto sync = std::make_shared<SyncPoint>();
    sync->SyncRTP = report.rtp_ts;
    sync->SyncSSRC = report.ssrc;
    sync->SyncNTPmsw = static_cast<std::uint32_t>(report.ntp >> 32);
    sync->SyncNTPlsw = static_cast<std::uint32_t>(report.ntp);
    return sync;
}

/// The library takes the nearer way round from report to packet: a report a quarter of a wrap away is moved
/// along.
constexpr std::int32_t kFarthest = 1 << 30;

/// Timing logs are numbered by the first name that is free: two that begin at once must not find the same.
void EnableTimeLogging(TimeFilter& camera, const std::string& directory) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    camera.EnableTimeLogging(directory);
}

}  // namespace

MedianClock::MedianClock(const Setup& setup)
    : rate_Hz_(setup.rate_Hz)
    , meanLatency_(setup.meanLatency)
    , camera_(std::make_unique<TimeFilter>(setup.cameraName + ": ")) {
    if (!setup.settings.timingLogDirectory.empty())
        EnableTimeLogging(*camera_, setup.settings.timingLogDirectory);
    stream_ = camera_->CreateNewTimeFilter();
    stream_->SetStreamId(setup.streamId);
    stream_->SetMeanLatency(setup.meanLatency);
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
}

void MedianClock::Measure(const Settings& settings, std::optional<std::chrono::milliseconds> expectedD) {
    probes_ = true;
    camera_->UseICMP(settings.icmpHost, settings.icmpPoll, settings.probeLogDirectory,
                     !settings.probeLogDirectory.empty());
    if (expectedD)
        camera_->CheckPollDifference(*expectedD);
}

MedianClock::~MedianClock() = default;

void MedianClock::Begin(const Timed& timed) {
    _Update(timed);
}

void MedianClock::TakeReport(const Report& report) {
    report_ = report;
    stream_->UpdateSyncInfo(SyncPointOf(report));
}

MedianClock::Answer MedianClock::Take(const Timed& timed, std::optional<std::chrono::milliseconds> measured) {
    const Assembled& frame = timed.frame;
    const auto distance = static_cast<std::int32_t>(frame.rtp_ts - report_.rtp_ts);
    if (distance > kFarthest || distance < -kFarthest) {
        Report moved = report_;
        moved.ntp = ReportCheck::NtpAt(report_, frame.rtp_ts, rate_Hz_);
        moved.rtp_ts = frame.rtp_ts;
        TakeReport(moved);
    }

    Answer answer;
    answer.captured_cam = stream_->GetTOC_Cam(frame.rtp_ts, rate_Hz_, frame.arrival_host);
    stream_->DoEstimation(!measured);
    if (measured)
        camera_->SetD(*measured);
    else
        _Seed(answer.captured_cam, frame.arrival_host);
    seeded_ = true;
    answer.D = camera_->GetD();
    _Update(timed);
    answer.captured_host = stream_->GetCurrentTOC_Host();
    answer.replaced = stream_->GetCurrentEstimationQuality() == MediaPacket::kTrustBad;
    return answer;
}

MedianClock::Answer MedianClock::Map(std::uint32_t rtp_ts, TimePoint arrival_host) {
    Answer answer;
    answer.captured_cam = stream_->GetTOC_Cam(rtp_ts, rate_Hz_, arrival_host);
    _Seed(answer.captured_cam, arrival_host);
    answer.captured_host = stream_->GetTOC_Host(answer.captured_cam);
    answer.D = camera_->GetD();
    answer.replaced = answer.captured_host > arrival_host;
    if (answer.replaced)
        answer.captured_host = arrival_host;
    return answer;
}

void MedianClock::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    meanLatency_ = meanLatency;
    stream_->SetMeanLatency(meanLatency);
}

std::optional<std::chrono::milliseconds> MedianClock::MeasuredD() const {
    if (!probes_ || !camera_->IsUsingProbe() || !camera_->DIsLocked())
        return std::nullopt;
    return camera_->GetD();
}

std::chrono::microseconds MedianClock::MeasuredUncertainty() const {
    return camera_->GetD_uncert();
}

bool MedianClock::ProbeGaveUp() const {
    return probes_ && !camera_->IsUsingProbe();
}

std::chrono::milliseconds MedianClock::D() const {
    return camera_->GetD();
}

/// The library's D is of the time before the first report: this frame's own latency tells a better one.
void MedianClock::_Seed(TimePoint captured_cam, TimePoint arrival_host) {
    if (seeded_ || MeasuredD())
        return;
    seeded_ = true;
    const Ticks latency = Elapsed(captured_cam, arrival_host);
    camera_->SetD(std::chrono::duration_cast<std::chrono::milliseconds>(latency) - meanLatency_);
}

void MedianClock::_Update(const Timed& timed) {
    const Assembled& frame = timed.frame;
    const Ticks sinceEpoch = frame.arrival_host.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch - seconds);

    auto timing = records_.Make<TimingData>();
    timing->RTP_ts = frame.rtp_ts;
    timing->RTPFreq = rate_Hz_;
    timing->RTPSeqnum = frame.seq;
    timing->SSRC = timed.ssrc;
    timing->LiveTOR_tv_sec = static_cast<std::int32_t>(seconds.count());
    timing->LiveTOR_tv_usec = static_cast<std::int32_t>(rest.count());
    timing->RTCP_sync = timed.synced;
    timing->TOR_host = frame.arrival_host;
    stream_->UpdateTiming(std::move(timing), frame.kind.type);
}

}  // namespace camclock::receiver
