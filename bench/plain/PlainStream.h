#pragma once

#include "PlainMedian.h"

#include <camclock/MediaPacket.h>
#include <camclock/SyncPoint.h>
#include <camclock/TimingData.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace camclock::bench {

/// One stream of a camera without probing, filtering and estimation on, as one would write it at first: the
/// window is shifted and filtered whole for every packet. Messages are left out.
class PlainStream {
public:
    void UpdateSyncInfo(std::shared_ptr<SyncPoint> sync) {
        const auto seconds = static_cast<std::int64_t>(sync->SyncNTPmsw) - 2'208'988'800;
        const auto fraction =
            static_cast<std::int64_t>(static_cast<double>(sync->SyncNTPlsw) * 0.00023283064);
        sync->syncTime = TimePoint(Ticks((seconds * 1'000'000 + fraction) * 10));
        sync_ = sync;
        if (t0_ == TimePoint{})
            t0_ = sync->syncTime;
    }

    void UpdateTiming(std::shared_ptr<TimingData> packet, MediaPacket::Frametype frameType) {
        packet_ = packet;
        frameType_ = frameType;
        ++packetCount_;
        TOC_cam_ = Map(packet_->RTP_ts, packet_->RTPFreq);
        TOC_host_ = TOC_cam_ + std::chrono::milliseconds(D_.load() + syncShift_.load());
        trust_ = packet_->TOR_host >= TOC_host_ ? MediaPacket::kTrustGood : MediaPacket::kTrustBad;
        if (trust_ == MediaPacket::kTrustBad)
            TOC_host_ = packet_->TOR_host;
        if (TOC_host_ < TOC_host_last_)
            TOC_host_ = TOC_host_last_;
        TOC_host_last_ = TOC_host_;

        if (packetCount_ > 1) {
            const TimePoint toc = Map(packet_->RTP_ts, packet_->RTPFreq);
            const std::int64_t elapsed_us = (toc - t0_).count() / 10;
            const double rate = packet_->RTPFreq;
            const double pts = static_cast<double>(elapsed_us) * rate / 1e6;
            const double step_us = (pts - static_cast<double>(lastPts_)) / rate * 1e6;
            stablePts_ = static_cast<std::int64_t>(pts);
            if (stablePts_ == lastPts_ || step_us < 1 || step_us > 120e6)
                stablePts_ = lastPts_ + 1;
            lastPts_ = stablePts_;
        }

        window_.push_back(static_cast<double>((packet_->TOR_host - TOC_cam_).count() / 10));
        if (window_.size() > 51)
            window_.erase(window_.begin());
        std::array<double, 51> filtered{};
        const int n = static_cast<int>(window_.size());
        PlainMedianFilter(window_.data(), filtered.data(), n, n);
        D_ = static_cast<std::int64_t>(filtered[window_.size() / 2]) / 1'000 - 30;
    }

    TimePoint TOC_host() const { return TOC_host_; }
    std::int64_t StablePts() const { return stablePts_; }
    MediaPacket::TimeEstimateTrustIndex Trust() const { return trust_; }
    std::int64_t D() const { return D_; }

private:
    TimePoint Map(std::uint32_t rtp, std::uint32_t rate) const {
        const std::shared_ptr<SyncPoint> sync = sync_;
        const auto distance = static_cast<std::int32_t>(rtp - sync->SyncRTP);
        return sync->syncTime + std::chrono::microseconds(
                                    static_cast<std::int64_t>(static_cast<double>(distance) / rate * 1e6));
    }

    std::shared_ptr<SyncPoint> sync_;
    std::shared_ptr<TimingData> packet_;
    MediaPacket::Frametype frameType_ = MediaPacket::kFrameUnknown;
    std::uint64_t packetCount_ = 0;
    TimePoint t0_{};
    TimePoint TOC_cam_{};
    TimePoint TOC_host_{};
    TimePoint TOC_host_last_ = kNotYetSet;
    std::atomic<std::int64_t> D_{0};
    std::atomic<std::int64_t> syncShift_{0};
    MediaPacket::TimeEstimateTrustIndex trust_ = MediaPacket::kTrustGood;
    std::int64_t stablePts_ = 0;
    std::int64_t lastPts_ = 0;
    std::vector<double> window_;
};

}  // namespace camclock::bench
