#include "apps/camclock/sources/StreamSession.h"

#include "receiver/RtcpReader.h"
#include "receiver/RtpReader.h"

#include <camclock/TimeFilter.h>

#include <utility>

namespace camclock::app {

StreamSession::StreamSession(TimeFilter& camera, std::string streamId, const receiver::Format& format,
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

void StreamSession::FeedRtp(const void* datagram, std::size_t size, TimePoint arrival) {
    auto packet = receiver::ReadRtp(static_cast<const std::uint8_t*>(datagram), size);
    if (!packet)
        return;
    packet->TOR_host = arrival;
    OnPacket(*packet);
}

void StreamSession::FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival) {
    receiver::RtcpContents contents;
    receiver::ReadRtcp(static_cast<const std::uint8_t*>(datagram), size, contents);
    for (const receiver::SenderReport& report : contents.reports)
        OnSenderReport(report, arrival);
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
    ++counts_.reports;
    counts_.lastReport_host = arrival;
}

std::optional<receiver::PictureFormat> StreamSession::Picture() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return headers_.Picture();
}

receiver::Statistics StreamSession::Snapshot() {
    const std::lock_guard<std::mutex> guard(mutex_);
    counts_.lost = assembler_.LostPackets();
    counts_.late = assembler_.LatePackets();
    counts_.D = camera_.GetD();
    counts_.D_uncert = camera_.GetD_uncert();
    return counts_;
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
    timing->RTPFreq = format_.clockRate_Hz;
    timing->RTPSeqnum = frame.seqnum;
    timing->SSRC = frame.SSRC;
    timing->LiveTOR_tv_sec = static_cast<std::int32_t>(seconds.count());
    timing->LiveTOR_tv_usec = static_cast<std::int32_t>(rest.count());
    timing->RTCP_sync = rtcpSync_;
    timing->TOR_host = frame.TOR_host;
    instance_->UpdateTiming(std::move(timing), frame.type);

    receiver::Frame row;
    row.arrived_host = frame.TOR_host;
    // Asked only with reports at hand: without, the library would count and log one more fallback.
    row.captured_cam = rtcpSync_ ? instance_->GetTOC_Cam(frame.RTP_ts, format_.clockRate_Hz, frame.TOR_host)
                                 : frame.TOR_host;
    row.captured_host = instance_->GetCurrentTOC_Host();
    row.median_host = row.captured_host;
    row.trust = !rtcpSync_ ? receiver::Trust::kArrivalOnly
                : instance_->GetCurrentEstimationQuality() == MediaPacket::kTrustGood
                    ? receiver::Trust::kGood
                    : receiver::Trust::kReplaced;
    row.pts = instance_->GetCurrentStablePTS();
    row.D = camera_.GetD();
    row.rtp_ts = frame.RTP_ts;
    row.ssrc = frame.SSRC;
    row.seq = frame.seqnum;
    row.type = frame.type;
    row.packets = frame.packets;
    row.bytes = frame.bytes;
    consumer_(row);
}

}  // namespace camclock::app
