#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Text.h"
#include "timing/LatencyWindow.h"
#include "util/Arithmetic.h"

#include <camclock/TimeFilter.h>

namespace camclock {
namespace {

constexpr std::uint64_t kEstimatesPerMessage = 100;  // one in 4 s at 25 frames/s

}  // namespace

void TimeFilterInstance::_RunEstimate() {
    std::int64_t latency_us = TicksBetween(TOC_cam_, timingData_->TOR_host) / kTicksPerMicrosecond;
    if (_HasRtcpSync()) {
        latencyWindow_->Append(static_cast<double>(latency_us));
        latency_us = TruncateToInt64(latencyWindow_->Median());
    }
    const std::int64_t latency_ms = latency_us / 1'000;
    D_hat_ms_ = WrappingSubtract(latency_ms, meanLatency_ms_);

    if (!timeFilter_.IsUsingProbe()) {
        timeFilter_.SetD(std::chrono::milliseconds(D_hat_ms_));
    } else if (estimateCount_ % kEstimatesPerMessage == 0) {
        const std::int64_t D_ms = timeFilter_.GetD().count();
        // Deliberate: the first number is the latency less D, not the latency
        // (LatencyEstimate.ProbingMessagePrintsLatencyLessD).
        log_->Post([id = streamId_, latencyLessD_ms = WrappingSubtract(latency_ms, D_ms),
                    D_hat_ms = D_hat_ms_, D_ms](std::stringstream& out) {
            Print(out, id, "\tStream median latency estimate [ms]: ", latencyLessD_ms, "\n",
                  "\tD_hat: ", D_hat_ms, " [ms]\n", "\tD: ", D_ms, " [ms]\n",
                  "\tD - D_hat: ", WrappingSubtract(D_ms, D_hat_ms), " [ms]\n");
        });
    }
    ++estimateCount_;
}

void TimeFilterInstance::_CheckProbeTime() {
    if (_HasRtcpSync())
        timeFilter_.CheckPollDifference(std::chrono::milliseconds(D_hat_ms_));
}

void TimeFilterInstance::SetMeanLatency(std::chrono::milliseconds meanLatency) {
    if (_InfoEnabled())
        _LogInfo(Text(" Initializing mean latency [ms] with: ", meanLatency.count()));
    meanLatency_ms_ = meanLatency.count();
}

}  // namespace camclock
