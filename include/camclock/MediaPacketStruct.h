#pragma once

#include <camclock/MediaPacket.h>
#include <camclock/TimePoint.h>

#include <cstdint>
#include <vector>

namespace camclock {

/// One packet or one whole frame on its way from the thread that receives to the thread that consumes. It is
/// held through `std::shared_ptr` only.
///
/// The library never looks inside: `MediaPacketQueue` only declares the name, so that an application with a
/// packet record of its own defines `camclock::MediaPacketStruct` itself and leaves this header out.
struct MediaPacketStruct {
    std::vector<std::uint8_t> data;  ///< the payload, without transport headers
    std::uint32_t RTP_ts = 0;        ///< RTP time stamp (RFC 3550, 5.1)
    std::uint32_t RTPSeqnum = 0;     ///< RTP sequence number of the last packet in it
    std::uint32_t SSRC = 0;          ///< synchronisation source of the stream
    MediaPacket::Frametype frameType = MediaPacket::kFrameUnknown;  ///< the kind of the frame
    bool RTCP_sync = false;  ///< a sender report had come before this packet
    TimePoint TOR_host{};    ///< time of reception, host's clock
    TimePoint TOC_host{};    ///< estimated time of capture, host's clock
    MediaPacket::TimeEstimateTrustIndex trustIndex = MediaPacket::kTrustBad;  ///< how far to trust `TOC_host`
    std::int64_t stablePts = 0;  ///< stable presentation time stamp, ticks of the RTP clock since T0
};

}  // namespace camclock
