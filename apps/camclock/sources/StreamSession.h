#pragma once

#include "apps/camclock/sources/FrameAssembler.h"
#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "receiver/PictureHeaders.h"
#include "receiver/RtpPacket.h"

#include <camclock/TimeFilterInstance.h>

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

/// What the description of a stream tells (SDP).
struct StreamFormat {
    receiver::Codec codec = receiver::Codec::kH264;
    std::uint32_t clockRate = 90'000;  ///< RTP clock, Hz
    std::string headers;               ///< sprop-parameter-sets, or config; may be empty
};

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
    using Consumer = std::function<void(const FrameRow&)>;

    StreamSession(TimeFilter& camera, std::string streamId, const StreamFormat& format,
                  TimingSettings settings, Consumer consumer);

    void OnPacket(const receiver::RtpPacket& packet);
    void OnSenderReport(const receiver::SenderReport& report, TimePoint arrival);

    /// False when a packet or a required report is overdue.
    bool ArrivalIsOk();

    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    const StreamFormat& Format() const { return format_; }

    /// What the pictures are like, as far as the stream's headers have told.
    std::optional<receiver::PictureFormat> Picture();

    /// The size that GStreamer's caps tell, for a stream whose headers tell none.
    void OnCaps(unsigned int width, unsigned int height);

private:
    void _StartInstance();
    void _OnFrame(const Frame& frame);

    TimeFilter& camera_;
    const std::string streamId_;
    const StreamFormat format_;
    TimingSettings settings_;
    Consumer consumer_;

    std::mutex mutex_;  // guards everything below
    std::shared_ptr<TimeFilterInstance> instance_;
    receiver::PictureHeaders headers_;
    FrameAssembler assembler_;
    bool anyPacket_ = false;
    std::uint32_t SSRC_ = 0;
    std::uint64_t reports_ = 0;
    bool rtcpSync_ = false;
    TimePoint lastReport_host_ = kNotYetSet;
};

}  // namespace camclock::app
