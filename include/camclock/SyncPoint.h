#pragma once

#include <camclock/TimePoint.h>

#include <cstdint>

namespace camclock {

/// One RTCP sender report (RFC 3550, 6.4.1): it ties one RTP time stamp to one time of the camera's clock.
///
/// The receiver fills the first four fields and hands the record to `TimeFilterInstance::UpdateSyncInfo`,
/// which fills `syncTime`. After that the record belongs to the library: do not change it.
struct SyncPoint {
    std::uint32_t SyncRTP = 0;     ///< RTP time stamp of the report, in ticks of the stream's RTP clock
    std::uint32_t SyncSSRC = 0;    ///< SSRC of the sender; printed by the timing log only
    std::uint32_t SyncNTPmsw = 0;  ///< NTP time stamp: whole seconds since 1900-01-01, camera's clock
    std::uint32_t SyncNTPlsw = 0;  ///< NTP time stamp: fraction, in units of 2^-32 s
    std::uint64_t userData = 0;    ///< the application's own; the library never reads it
    TimePoint syncTime{};  ///< the NTP time as a time point, camera's clock; written by `UpdateSyncInfo`
};

}  // namespace camclock
