#pragma once

#include <camclock/Export.h>
#include <camclock/MediaPacket.h>
#include <camclock/SyncPoint.h>
#include <camclock/TimePoint.h>
#include <camclock/TimingData.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace camclock {

class AsynchronousLog;
class LatencyWindow;
class TimeFilter;

/// When was this frame captured? One object per stream: it maps RTP time stamps to the camera's time of
/// capture (`TOC_cam`) and the host's (`TOC_host`), says whether the estimate can be trusted, issues stable
/// presentation time stamps and notices a stream that falls silent.
///
/// Made by `TimeFilter::CreateNewTimeFilter` and held by the application, which
/// destroys it before the `TimeFilter`.
///
/// Threads: one receiving thread drives an instance; it takes no lock. Different instances, also of one
/// camera, may run on different threads.
///
///     stream->UpdateSyncInfo(report);                                 // every RTCP sender report
///     stream->UpdateTiming(frame, camclock::MediaPacket::kFrameP);    // every frame, once
///     if (stream->GetCurrentEstimationQuality() == camclock::MediaPacket::kTrustGood)
///         Store(stream->GetCurrentTOC_Host());
class CAMCLOCK_API TimeFilterInstance {
public:
    /// Joins the worker of the instance's log; messages still queued in it are dropped.
    ~TimeFilterInstance();

    TimeFilterInstance(const TimeFilterInstance&) = delete;
    TimeFilterInstance& operator=(const TimeFilterInstance&) = delete;

    /// Estimate the clock difference from the latency of the packets; off at
    /// first. Needs time filtering, too.
    void DoEstimation(bool on);

    /// Map the camera's time of capture to the host's clock; off at first, and `TOC_host` is then `TOC_cam`.
    void DoTimeFiltering(bool on);

    /// Supervise the arrival of packets and reports (`PacketArrivalIsOk`); off at first.
    void EnableTimeOutCheck(bool on);

    /// The text in front of every message of this instance, and the first column of its timing-log rows.
    void SetStreamId(std::string streamId);
    std::string GetStreamId() const;

    /// Trust in the last packet's `TOC_host`.
    MediaPacket::TimeEstimateTrustIndex GetCurrentEstimationQuality() const;

    /// Time of capture of the last packet, host's clock.
    TimePoint GetCurrentTOC_Host() const;

    /// Stable presentation time stamp of the last packet: ticks of the stream's RTP clock since the camera's
    /// origin T0. It grows with every packet, by one tick at least.
    std::int64_t GetCurrentStablePTS() const;

    /// Takes an RTCP sender report and fills its `syncTime`. An empty pointer is ignored.
    void UpdateSyncInfo(std::shared_ptr<SyncPoint> sync);

    /// Takes one frame (or packet) and computes everything that the getters return. Feed it one call a frame,
    /// with the arrival of the frame's first packet as `TOR_host`. An empty pointer is ignored.
    ///
    /// The record is shared, not copied: do not change it afterwards. The logs let go of it on their own
    /// threads. Throws what the camera's shutdown handler throws, with the packet dealt with.
    void UpdateTiming(std::shared_ptr<TimingData> timing, MediaPacket::Frametype frameType);

    /// The latency to expect between capture and reception; 30 ms at first. An error in it is a constant
    /// error of `TOC_host`.
    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    /// True once the camera's `D` has settled, and whenever time filtering is off.
    bool TimeEstimatesInitialized();

    /// False once a packet or, where the camera requires it, a sender report is overdue by the host's clock;
    /// each such call says so in the log. An age equal to the time-out is still in time. Always true while
    /// supervision is off. The first check before any packet starts both clocks.
    bool PacketArrivalIsOk();

    /// True when the stable time stamps rest on what the camera requires: always where it does not require
    /// RTCP (`TimeFilter::RequireRTCP`), else from the first sender report on. It says nothing of the
    /// stamps themselves: those that could not be kept end the session through the shutdown handler.
    bool StablePtsIsOk();

    /// The time of `sync` moved by the distance of `RTP_ts` from it, camera's clock. The nearer way round the
    /// 32-bit RTP time is taken, microseconds are truncated toward zero. `RTPFreq` is the RTP clock rate in
    /// Hz. An empty `sync` gives `kNotYetSet`.
    static TimePoint MapTime(std::shared_ptr<SyncPoint> sync, std::uint32_t RTP_ts, double RTPFreq);

    /// Time of capture on the camera's clock; without RTCP sync the given time of reception, unchanged.
    TimePoint GetTOC_Cam(std::uint32_t RTP_ts, std::uint32_t RTPFreq, TimePoint TOR_host);

    /// A time of the camera's clock on the host's: plus the camera's `D` and sync shift as they are now.
    TimePoint GetTOC_Host(TimePoint TOC_cam);

    /// Writes a description of the last packet, several lines, to the
    /// instance's log; nothing before the first.
    void TraceCurrentPacket();

private:
    friend class TimeFilter;
    explicit TimeFilterInstance(TimeFilter& timeFilter);

    void _RunFollowProcess();
    void _RaiseToLastTocHost();
    void _ReportBadEstimate();
    /// Returns what the shutdown handler has thrown, which goes on once the packet is done with.
    [[nodiscard]] std::exception_ptr _UpdateStablePts();
    void _InitStablePts();
    void _RunEstimate();
    void _CheckProbeTime();
    void _WriteLog();
    static bool _InfoEnabled();
    void _LogInfo(const std::string& message) const;
    bool _HasRtcpSync() const { return syncPoint_ != nullptr; }

    TimePoint TOC_host_last_ = kNotYetSet;
    TimeFilter& timeFilter_;
    std::shared_ptr<SyncPoint> syncPoint_;
    std::shared_ptr<TimingData> timingData_;
    MediaPacket::Frametype frameType_ = MediaPacket::kFrameUnknown;
    std::uint64_t syncCount_ = 0;
    TimePoint lastRtcpArrival_ = kNotYetSet;
    std::uint64_t packetCount_ = 0;
    TimePoint TOR_host_ = kNotYetSet;
    TimePoint TOC_cam_{};
    double RTP_freq_ = 0.0;
    TimePoint TOC_host_{};
    std::uint64_t badEstimateCount_ = 0;
    std::uint32_t badEstimatesInARow_ = 0;
    std::uint32_t badEstimatesInARowLimit_ = 10;
    std::uint32_t fallbackCount_ = 0;
    MediaPacket::TimeEstimateTrustIndex trustIndex_ = MediaPacket::kTrustGood;
    std::uint64_t estimateCount_ = 0;
    std::int64_t meanLatency_ms_ = 30;
    std::unique_ptr<LatencyWindow> latencyWindow_;
    std::int64_t D_hat_ms_ = 0;
    std::int64_t stablePts_ = 0;
    std::int64_t lastAcceptedStablePts_ = 0;
    std::uint32_t stablePtsErrors_ = 0;
    std::string streamId_;
    std::unique_ptr<AsynchronousLog> log_;
    bool doEstimation_ = false;
    bool doTimeFiltering_ = false;
    bool timeOutCheck_ = false;
};

}  // namespace camclock
