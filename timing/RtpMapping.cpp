#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Text.h"
#include "timing/RtpArithmetic.h"

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include <utility>

namespace camclock {
namespace {

constexpr std::uint32_t kFallbacksPerMessage = 200;  // a packet has two: one in 4 s at 25 frames/s
constexpr std::uint64_t kReportsPerMessage = 20;     // one in 100 s at a report every 5 s (RFC 3550, 6.2)

/// Both messages about a report end alike; only the time that they print differs.
struct ReportText {
    std::string streamId;
    std::uint64_t syncCount;
    std::uint32_t SyncRTP;
    TimePoint capturedAt;
    std::int64_t change_ms;

    template <class... Before>
    void PrintTo(std::ostream& out, const Before&... before) const {
        Print(out, before..., streamId, "RTCP report #", syncCount, " ;  remote reports frame ", SyncRTP,
              " captured at: ", capturedAt, ". This moves subsequent estimates ", change_ms,
              "[ms] to the future");
    }
};

}  // namespace

TimePoint TimeFilterInstance::MapTime(std::shared_ptr<SyncPoint> sync, std::uint32_t RTP_ts, double RTPFreq) {
    return sync ? MovedByRtp(sync->syncTime, sync->SyncRTP, RTP_ts, RTPFreq) : kNotYetSet;
}

TimePoint TimeFilterInstance::GetTOC_Cam(std::uint32_t RTP_ts, std::uint32_t RTPFreq, TimePoint TOR_host) {
    if (_HasRtcpSync())
        return MovedByRtp(syncPoint_->syncTime, syncPoint_->SyncRTP, RTP_ts, static_cast<double>(RTPFreq));

    if (fallbackCount_ % kFallbacksPerMessage == 0 && _InfoEnabled()) {
        _LogInfo("Camera time of capture not available because there is no RTCP sync");
        _LogInfo(Text("- Falling back to host time of reception the: ", fallbackCount_, " th time"));
    }
    ++fallbackCount_;
    return TOR_host;
}

TimePoint TimeFilterInstance::GetTOC_Host(TimePoint TOC_cam) {
    return MovedByMilliseconds(TOC_cam,
                               WrappingAdd(timeFilter_.GetD().count(), timeFilter_.GetSyncShift().count()));
}

void TimeFilterInstance::UpdateSyncInfo(std::shared_ptr<SyncPoint> sync) {
    if (!sync)
        return;
    ++syncCount_;
    lastRtcpArrival_ = Utilities::getInstance().GetTime();
    sync->syncTime = NtpToTimePoint(sync->SyncNTPmsw, sync->SyncNTPlsw);

    // Reports may come before the first packet, which tells the clock rate: nothing can be compared then.
    std::int64_t change_ms = 0;
    if (_HasRtcpSync() && RTP_freq_ != 0.0) {
        const TimePoint predicted =
            MovedByRtp(syncPoint_->syncTime, syncPoint_->SyncRTP, sync->SyncRTP, RTP_freq_);
        change_ms = TicksBetween(predicted, sync->syncTime) / kTicksPerMillisecond;
        if (change_ms != 0) {
            // Deliberate: this message prints the previous report's time, the one below the new report's
            // (UpdateSyncInfo.ChangeMessagePrintsThePreviousReportsTime).
            const ReportText text{streamId_, syncCount_, sync->SyncRTP, syncPoint_->syncTime, change_ms};
            log_->Post([text](std::stringstream& out) {
                text.PrintTo(out, text.streamId, "New RTCP has introduced change !\n");
            });
        }
    }

    syncPoint_ = std::move(sync);

    if (syncCount_ % kReportsPerMessage == 0 || syncCount_ == 1) {
        const ReportText text{streamId_, syncCount_, syncPoint_->SyncRTP, syncPoint_->syncTime, change_ms};
        log_->Post([text](std::stringstream& out) { text.PrintTo(out); });
    }
    if (syncCount_ == 1)
        _InitStablePts();
}

}  // namespace camclock
