#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Text.h"
#include "util/Arithmetic.h"

#include <camclock/TimeFilter.h>

#include <utility>

namespace camclock {
namespace {

std::int64_t MillisecondsSince1970(TimePoint time) {
    return time.time_since_epoch().count() / kTicksPerMillisecond;
}

/// Writes one row of the timing log, in the order of kTimingLogHeader: every field,
/// the last too, is followed by ", ".
template <class... Fields>
void PrintRow(std::ostream& out, const Fields&... fields) {
    TextBuilder row;
    ((row.Append(fields), row.Append(", ")), ...);
    row.Append('\n');
    row.WriteTo(out);
}

}  // namespace

void TimeFilterInstance::_WriteLog() {
    if (!timeFilter_.IsTimeLogging() || syncCount_ == 0)
        return;
    auto row = [id = streamId_, packet = timingData_, sync = *syncPoint_,
                TOR_host_ms = MillisecondsSince1970(TOR_host_), TOC_cam_ms = MillisecondsSince1970(TOC_cam_),
                D_ms = timeFilter_.GetD().count(), D_uncert_us = timeFilter_.GetD_uncert().count(),
                D_hat_ms = D_hat_ms_, meanLatency_ms = meanLatency_ms_,
                frameType = frameType_](std::stringstream& out) {
        out.str(std::string());  // a row carries no stamp
        PrintRow(out, id, packet->SSRC, packet->RTP_ts, packet->RTPFreq, packet->RTPSeqnum,
                 packet->LiveTOR_tv_sec, packet->LiveTOR_tv_usec, packet->LivePts_tv_sec,
                 packet->LivePts_tv_usec, TOR_host_ms, static_cast<std::int32_t>(frameType), sync.SyncRTP,
                 sync.SyncNTPmsw, sync.SyncNTPlsw, sync.SyncSSRC, TOC_cam_ms, D_ms, D_uncert_us, D_hat_ms,
                 meanLatency_ms);
    };
    static_assert(MessageSlot::Fits<decltype(row)>(), "posting a row allocates nothing");
    timeFilter_.TimeLog().Post(std::move(row));
}

}  // namespace camclock
