#include <camclock/TimeFilterInstance.h>

#include "logging/AsynchronousLog.h"
#include "logging/Text.h"
#include "util/Arithmetic.h"

#include <camclock/TimeFilter.h>

#include <limits>

namespace camclock {
namespace {

constexpr std::uint64_t kLongestStep_us = 120'000'000;  // two minutes without a frame: no stream does that
constexpr std::uint32_t kErrorsUntilShutdown = 1'000;   // 40 s at 25 frames/s
constexpr std::uint64_t kPacketsPerMessage = 200;       // one in 8 s at 25 frames/s

}  // namespace

std::exception_ptr TimeFilterInstance::_UpdateStablePts() {
    const TimingData& packet = *timingData_;
    const TimePoint toc = GetTOC_Cam(packet.RTP_ts, packet.RTPFreq, packet.TOR_host);

    if (packetCount_ == 1) {
        timeFilter_.SetStablePtst0(toc, _HasRtcpSync());
        log_->Post([id = streamId_, packetCount = packetCount_, t0 = timeFilter_.GetStablePtsT0(true),
                    pts = stablePts_](std::stringstream& out) {
            Print(out, id, " Packet #", packetCount, ", Stable pts initialized; T0: ", t0, ", Pts0: ", pts);
        });
        return nullptr;
    }

    const TimePoint t0 = timeFilter_.GetStablePtsT0(_HasRtcpSync());
    const std::int64_t elapsed_us = TicksBetween(t0, toc) / kTicksPerMicrosecond;
    const auto rate = static_cast<double>(packet.RTPFreq);
    const double pts = static_cast<double>(elapsed_us) * rate / 1'000'000.0;
    stablePts_ = TruncateToInt64(pts);

    // A step backwards turns into a huge unsigned one, as does what a rate of 0 gives.
    const double ahead = pts - static_cast<double>(lastAcceptedStablePts_);
    const std::int64_t step_us = rate == 0.0 ? TruncateToInt64(std::numeric_limits<double>::quiet_NaN())
                                             : TruncateToInt64(ahead / rate * 1'000'000.0);
    std::exception_ptr thrown;
    const auto unsignedStep_us = static_cast<std::uint64_t>(step_us);
    if (stablePts_ != lastAcceptedStablePts_ && unsignedStep_us >= 1 && unsignedStep_us <= kLongestStep_us) {
        stablePtsErrors_ = 0;
        lastAcceptedStablePts_ = stablePts_;
    } else {
        log_->Post(
            [id = streamId_, step_ms = step_us / 1'000, packetCount = packetCount_](std::stringstream& out) {
                Print(out, id, "ERROR !! Stable pts ", step_ms, " [ms] ahead of last frame", ", Packet #",
                      packetCount);
            });
        ++stablePtsErrors_;
        if (stablePtsErrors_ >= kErrorsUntilShutdown) {
            _LogInfo("The stable pts is messed up, this session needs to be terminated");
            try {
                timeFilter_.ShutDown();
            } catch (...) {  // the application's; the time stamps go on before it gets it back
                thrown = std::current_exception();
            }
        }
        lastAcceptedStablePts_ = WrappingAdd(lastAcceptedStablePts_, 1);
        stablePts_ = lastAcceptedStablePts_;
    }

    if (packetCount_ % kPacketsPerMessage == 1) {
        // Deliberate: the elapsed time is in microseconds although its label says "[ms]"
        // (StablePts.InfoPrintsMicrosecondsUnderAMillisecondLabel).
        log_->Post([id = streamId_, packetCount = packetCount_, t0, toc, elapsed_us,
                    pts = stablePts_](std::stringstream& out) {
            Print(out, id, "StablePTsInfo: ", "Packet #", packetCount, "\n", "\tT0: ", t0, "\n",
                  "\tTOC: ", toc, "\n", "\tElapsed since begin: ", elapsed_us, "[ms]\n", "\tstablePts: ", pts,
                  "\n");
        });
    }
    if (packetCount_ % kPacketsPerMessage == 0) {
        log_->Post([id = streamId_, packetCount = packetCount_, elapsed_ms = elapsed_us / 1'000,
                    pts = stablePts_](std::stringstream& out) {
            Print(out, id, "Packet #", packetCount, " , ", "Stable pts progress: elapsed ", elapsed_ms,
                  "[ms] ", " Pts: ", pts);
        });
    }
    return thrown;
}

// The first report switches TOC_cam from the reception time to the camera's clock; T0 moves along, so that
// the stable time stamps go on where they are.
void TimeFilterInstance::_InitStablePts() {
    if (timeFilter_.StablePtsT0Locked())
        return;
    if (packetCount_ == 0) {
        timeFilter_.SetStablePtst0(syncPoint_->syncTime, true);
        return;
    }

    const TimePoint oldT0 = timeFilter_.GetStablePtsT0(true);
    const std::int64_t offset_us = TicksBetween(oldT0, TOC_cam_) / kTicksPerMicrosecond;
    const TimePoint newToc = GetTOC_Cam(timingData_->RTP_ts, timingData_->RTPFreq, timingData_->TOR_host);
    const TimePoint newT0 = MovedBy(newToc, -offset_us * kTicksPerMicrosecond);
    const std::int64_t change_ms = TicksBetween(oldT0, newT0) / kTicksPerMillisecond;
    if (change_ms == 0)
        return;
    log_->Post([id = streamId_, oldT0, newT0, change_ms](std::stringstream& out) {
        Print(out, id, "A new stablePts T0 found \n", "\tprevious: ", oldT0, "\n", "\tnew: ", newT0, "\n",
              "\tdifference:", change_ms, "[ms]");
    });
    timeFilter_.SetStablePtst0(newT0, _HasRtcpSync());
}

}  // namespace camclock
