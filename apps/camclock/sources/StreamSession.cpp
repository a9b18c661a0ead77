#include "apps/camclock/sources/StreamSession.h"

#include <camclock/TimeFilter.h>

#include <utility>

namespace camclock::app {

StreamSession::StreamSession(TimeFilter& camera, std::string streamId, const StreamFormat& format,
                             TimingSettings settings, Consumer consumer)
    : camera_(camera)
    , streamId_(std::move(streamId))
    , format_(format)
    , settings_(std::move(settings))
    , consumer_(std::move(consumer))
    , headers_(format.codec, format.headers)
    , assembler_(format.codec, [this](const Frame& frame) { _OnFrame(frame); }) {
    _StartInstance();
}

void StreamSession::_StartInstance() {
    instance_ = camera_.CreateNewTimeFilter();
    instance_->SetStreamId(streamId_);
    instance_->SetMeanLatency(settings_.meanLatency);
    instance_->DoTimeFiltering(settings_.filtering);
    instance_->DoEstimation(settings_.estimation);
    instance_->EnableTimeOutCheck(true);
    rtcpSync_ = false;
}

void StreamSession::OnPacket(const receiver::RtpPacket& packet) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (anyPacket_ && packet.SSRC != SSRC_) {
        // Another source has RTP times of its own, which the reports of the last one do not map.
        assembler_.Finish();
        _StartInstance();
    }
    anyPacket_ = true;
    SSRC_ = packet.SSRC;
    headers_.Take(packet.payload, packet.size);
    assembler_.Add(packet);
}

void StreamSession::OnSenderReport(const receiver::SenderReport& report, TimePoint arrival) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (anyPacket_ && report.SSRC != SSRC_)
        return;  // of a source that is not, or no longer, the stream's
    auto sync = std::make_shared<SyncPoint>();
    sync->SyncRTP = report.RTP_ts;
    sync->SyncSSRC = report.SSRC;
    sync->SyncNTPmsw = static_cast<std::uint32_t>(report.NTP >> 32);
    sync->SyncNTPlsw = static_cast<std::uint32_t>(report.NTP);
    instance_->UpdateSyncInfo(std::move(sync));
    rtcpSync_ = true;
    ++reports_;
    lastReport_host_ = arrival;
}

std::optional<receiver::PictureFormat> StreamSession::Picture() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return headers_.Picture();
}

void StreamSession::OnCaps(unsigned int width, unsigned int height) {
    const std::lock_guard<std::mutex> guard(mutex_);
    headers_.TakeFallback(width, height);
}

bool StreamSession::ArrivalIsOk() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return instance_->PacketArrivalIsOk();
}

void StreamSession::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    const std::lock_guard<std::mutex> guard(mutex_);
    settings_.meanLatency = meanLatency;
    instance_->SetMeanLatency(meanLatency);
}

void StreamSession::_OnFrame(const Frame& frame) {
    const auto sinceEpoch = frame.TOR_host.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch - seconds);

    auto timing = std::make_shared<TimingData>();
    timing->RTP_ts = frame.RTP_ts;
    timing->RTPFreq = format_.clockRate;
    timing->RTPSeqnum = frame.seqnum;
    timing->SSRC = frame.SSRC;
    timing->LiveTOR_tv_sec = static_cast<std::int32_t>(seconds.count());
    timing->LiveTOR_tv_usec = static_cast<std::int32_t>(rest.count());
    timing->RTCP_sync = rtcpSync_;
    timing->TOR_host = frame.TOR_host;
    instance_->UpdateTiming(std::move(timing), frame.type);

    FrameRow row;
    row.frame = frame;
    // Asked only with reports at hand: without, the library would count and log one more fallback.
    row.TOC_cam =
        rtcpSync_ ? instance_->GetTOC_Cam(frame.RTP_ts, format_.clockRate, frame.TOR_host) : frame.TOR_host;
    row.TOC_host = instance_->GetCurrentTOC_Host();
    row.trust = instance_->GetCurrentEstimationQuality();
    row.stablePts = instance_->GetCurrentStablePTS();
    row.rtcpSync = rtcpSync_;
    row.D = camera_.GetD();
    row.D_uncert = camera_.GetD_uncert();
    row.reports = reports_;
    row.lastReport_host = lastReport_host_;
    row.lostPackets = assembler_.LostPackets();
    consumer_(row);
}

}  // namespace camclock::app
