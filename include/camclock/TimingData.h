#pragma once

#include <camclock/TimePoint.h>

#include <cstdint>

namespace camclock {

/// One received media packet, or one whole frame, as the receiver saw it.
///
/// `RTP_ts`, `RTPFreq` and `TOR_host` drive the time filter; the other fields only appear in the packet trace
/// and the timing log.
struct TimingData {
    std::uint32_t RTP_ts = 0;          ///< RTP time stamp (RFC 3550, 5.1), in ticks of the stream's RTP clock
    std::uint32_t RTPFreq = 0;         ///< rate of that clock in Hz; 90,000 for video
    std::uint32_t RTPSeqnum = 0;       ///< RTP sequence number
    std::uint32_t userData = 0;        ///< the application's own; the library never reads it
    std::uint32_t SSRC = 0;            ///< synchronisation source of the stream
    std::int32_t LiveTOR_tv_sec = 0;   ///< the receiver's own time of reception: seconds
    std::int32_t LiveTOR_tv_usec = 0;  ///< ... and microseconds
    std::int32_t LivePts_tv_sec = 0;   ///< the receiver's presentation time: seconds
    std::int32_t LivePts_tv_usec = 0;  ///< ... and microseconds
    bool RTCP_sync = false;            ///< the receiver's time stamps are RTCP-synchronised; traced only
    TimePoint TOR_host{};              ///< time of reception, host's clock (`Utilities::GetTime`)
};

}  // namespace camclock
