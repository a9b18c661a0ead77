#pragma once

namespace camclock {

/// The header line of the timing log. `TimingLogRow.cpp` writes its columns in this order; docs/formats.md
/// gives their units.
inline constexpr const char* kTimingLogHeader =
    "Logging time filter states.: \n"
    "StreamID: SSRC,RTP,RTPFreq,RTPSeqnum,LiveTOR_tv_sec,LiveTOR_tv_usec,LivePts_tv_sec,LivePts_tv_usec,TOR_host,"
    "FrameT,SyncRTP,SyncNTPmsw,SyncNTPlsw,SyncSSRC,TOC_cam,D,D_uncert,D_hat,L\n";

}  // namespace camclock
