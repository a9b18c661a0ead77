#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Categories.h"
#include "logging/DirectMessage.h"
#include "logging/Text.h"
#include "util/Arithmetic.h"

#include <camclock/TimeFilter.h>

namespace camclock {
namespace {

constexpr std::uint64_t kBadEstimatesPerMessage = 200;  // one in 8 s at 25 frames/s

}  // namespace

// The one physical rule: a frame cannot have been captured after the host received it.
void TimeFilterInstance::_RunFollowProcess() {
    const TimingData& packet = *timingData_;
    TOC_cam_ = GetTOC_Cam(packet.RTP_ts, packet.RTPFreq, packet.TOR_host);

    if (!doTimeFiltering_) {
        TOC_host_ = TOC_cam_;
        trustIndex_ = MediaPacket::kTrustBad;
        return;
    }

    TOC_host_ = GetTOC_Host(TOC_cam_);
    if (packet.TOR_host >= TOC_host_) {
        badEstimatesInARow_ = 0;
        trustIndex_ = MediaPacket::kTrustGood;
    } else {
        if (_HasRtcpSync())
            _ReportBadEstimate();
        TOC_host_ = packet.TOR_host;
    }

    if (_HasRtcpSync())
        _RaiseToLastTocHost();
}

void TimeFilterInstance::_ReportBadEstimate() {
    trustIndex_ = MediaPacket::kTrustBad;
    if (badEstimateCount_ % kBadEstimatesPerMessage == 0) {
        TraceCurrentPacket();  // while it still shows the bad estimate
        const std::int64_t excess_ms = TicksBetween(timingData_->TOR_host, TOC_host_) / kTicksPerMillisecond;
        log_->Post([id = streamId_, excess_ms, packetCount = packetCount_](std::stringstream& out) {
            Print(out, id, "Bad estimate; TOC_host: ", excess_ms, " [ms] After TOR_host, pkt: ", packetCount,
                  "\n\tSetting TOC_host = TOR_host !");
        });
    }
    if (badEstimatesInARow_ == badEstimatesInARowLimit_) {
        log_->Post([id = streamId_, limit = badEstimatesInARowLimit_](std::stringstream& out) {
            Print(out, id, "Bad estimates after sync more than ", limit, " in a row",
                  " ... Degrading trust for this host");
        });
    }
    ++badEstimatesInARow_;
    ++badEstimateCount_;
}

void TimeFilterInstance::_RaiseToLastTocHost() {
    if (TOC_host_ < TOC_host_last_) {
        // Deliberate: of all direct messages this one alone carries no stream id
        // (FollowProcess.EarlierCaptureIsRaisedToTheLastAndLoggedWithoutStreamId).
        if (_InfoEnabled())
            WriteInfo(categories::TimeFilterInstance(),
                      Text("TOC BACK TO THE FUTURE: ", TOC_host_, " -- last: ", TOC_host_last_));
        TOC_host_ = TOC_host_last_;
    }
    TOC_host_last_ = TOC_host_;
}

}  // namespace camclock
