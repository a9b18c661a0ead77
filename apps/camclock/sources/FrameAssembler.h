#pragma once

#include "receiver/RtpPacket.h"

#include <camclock/MediaPacket.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace camclock::app {

/// All packets of one RTP time stamp.
struct Frame {
    std::uint32_t RTP_ts = 0;
    std::uint32_t SSRC = 0;
    std::uint16_t seqnum = 0;  ///< of the first packet that arrived
    TimePoint TOR_host{};      ///< time of reception of that packet
    std::uint32_t packets = 0;
    std::uint64_t bytes = 0;  ///< payload only
    MediaPacket::Frametype type = MediaPacket::kFrameUnknown;
};

/// Which packets belong together? Packets of one RTP time stamp become one frame, which is complete with its
/// marker bit or, when that got lost, with the first packet of another time stamp. Each time stamp gives one
/// frame, also from cameras that set the marker bit too often.
///
/// Sequence numbers tell late packets (reordered or doubled) from new ones: a late packet of the open frame
/// is added to it, any other is dropped. One thread.
///
///     FrameAssembler assembler(Codec::kH264, [](const Frame& frame) { ... });
///     assembler.Add(packet);
class FrameAssembler {
public:
    using FrameSink = std::function<void(const Frame&)>;

    /// The kind of the frame that a payload is a part of; `kFrameUnknown` when it does not tell.
    using TypeReader = std::function<MediaPacket::Frametype(const std::uint8_t* payload, std::size_t size)>;

    FrameAssembler(TypeReader typeOf, FrameSink sink);

    /// With the frame types that packets of this codec tell by themselves.
    FrameAssembler(receiver::Codec codec, FrameSink sink);

    /// Takes the next packet; calls the sink for every frame that it completes, two at most.
    void Add(const receiver::RtpPacket& packet);

    /// Delivers the frame that is still open, and forgets the sequence: the next packet may be of another
    /// source.
    void Finish();

    /// Packets that the sequence numbers miss so far; one that comes late is taken off again.
    std::uint64_t LostPackets() const { return lost_; }

    /// Packets that came after their frame was complete, and were dropped.
    std::uint64_t LatePackets() const { return late_; }

private:
    void _Append(const receiver::RtpPacket& packet);
    void _Complete();

    TypeReader typeOf_;
    FrameSink sink_;
    Frame frame_;
    bool open_ = false;     // a frame is being collected
    bool started_ = false;  // the fields below mean something
    std::uint16_t highestSeqnum_ = 0;
    std::uint32_t completed_ts_ = 0;  // time stamp of the last complete frame
    bool anyCompleted_ = false;
    std::uint64_t lost_ = 0;
    std::uint64_t late_ = 0;
};

}  // namespace camclock::app
