#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Text.h"
#include "timing/TrustText.h"

#include <camclock/TimeFilter.h>

namespace camclock {

void TimeFilterInstance::TraceCurrentPacket() {
    if (!timingData_)
        return;
    log_->Post([id = streamId_, packetCount = packetCount_, packet = timingData_, TOC_cam = TOC_cam_,
                TOC_host = TOC_host_, D_ms = timeFilter_.GetD().count(),
                D_uncert_us = timeFilter_.GetD_uncert().count(), frameType = frameType_,
                trustIndex = trustIndex_, badEstimateCount = badEstimateCount_](std::stringstream& out) {
        const DurationPair live_pts = NormalizeDuration({packet->LivePts_tv_sec, packet->LivePts_tv_usec});
        // Deliberate: no line break after D_uncert (PacketTrace.UncertaintyAndKeyframeShareALine).
        Print(out, id, "\n", "\tPacket #", packetCount, "\n", "\tRTP_ts: ", packet->RTP_ts, "\n",
              "\tRTP_freq: ", packet->RTPFreq, "\n", "\tRTCP_sync: ", packet->RTCP_sync, "\n",
              "\tLive_pts: ", DurationToText(live_pts), "\n", "\tTOC_cam: ", TOC_cam, "\n",
              "\tTOC_host: ", TOC_host, "\n", "\tTOR_host: ", packet->TOR_host, "\n", "\tD: ", D_ms, "[ms]\n",
              "\tD_uncert: ", D_uncert_us, "[us]", "\tIsKeyframe: ", frameType == MediaPacket::kFrameI, "\n",
              "\tCurrent estimation quality: ", TrustText(trustIndex), "\n",
              "\tBad estimate count: ", badEstimateCount, "\n");
    });
}

}  // namespace camclock
