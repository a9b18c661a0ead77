#pragma once

#include "apps/camclock/sources/FrameAssembler.h"
#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "receiver/PictureHeaders.h"
#include "receiver/RtpPacket.h"

#include <camclock/TimeFilterInstance.h>
#include <camclock/receiver/Format.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace camclock {
class TimeFilter;
}

namespace camclock::app {

/// The road from packets to results for one stream: packets become frames, each frame makes one
/// `UpdateTiming` call with the arrival of its first packet as time of reception, each sender report one
/// `UpdateSyncInfo` call, and each frame leaves as one row.
///
/// Owned by the camera's receiver; the camera's `TimeFilter` must outlive it.
///
/// Threads: RTP and RTCP arrive on threads of their own and supervision asks from a third; a
/// `TimeFilterInstance` takes no lock, so that every operation here takes one, and the library sees one call
/// at a time in the order of arrival. `consumer` runs on the receiving thread, inside that lock, and must
/// neither wait nor call back.
class StreamSession {
public:
    using Consumer = std::function<void(const receiver::Frame&)>;

    StreamSession(TimeFilter& camera, std::string streamId, const receiver::Format& format,
                  TimingSettings settings, Consumer consumer);

    void FeedRtp(const void* datagram, std::size_t size, TimePoint arrival);
    void FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival);
    void OnPacket(const receiver::RtpPacket& packet);
    void OnSenderReport(const receiver::SenderReport& report, TimePoint arrival);

    /// False when a packet or a required report is overdue.
    bool ArrivalIsOk();

    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    const receiver::Format& Format() const { return format_; }

    /// What the pictures are like, as far as the stream's headers have told.
    std::optional<receiver::PictureFormat> Picture();

    receiver::Statistics Snapshot();

private:
    void _StartInstance();
    void _OnFrame(const Frame& frame);

    TimeFilter& camera_;
    const std::string streamId_;
    const receiver::Format format_;
    TimingSettings settings_;
    Consumer consumer_;

    std::mutex mutex_;  // guards everything below
    std::shared_ptr<TimeFilterInstance> instance_;
    receiver::PictureHeaders headers_;
    FrameAssembler assembler_;
    bool anyPacket_ = false;
    std::uint32_t SSRC_ = 0;
    bool rtcpSync_ = false;
    receiver::Statistics counts_;
};

}  // namespace camclock::app
