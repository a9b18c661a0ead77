#pragma once

#include "apps/camclock/sources/FrameAssembler.h"

#include <camclock/MediaPacket.h>
#include <camclock/TimePoint.h>

#include <chrono>
#include <cstdint>

namespace camclock::app {

/// All that is known about one frame: what arrived, and what the library says about it. A value, so that it
/// can pass from the receiving thread to the one that prints.
struct FrameRow {
    int stream = 0;  ///< number of the camera on the command line, from 1
    Frame frame;
    TimePoint TOC_cam{};   ///< time of capture, camera's clock; the time of reception before the first report
    TimePoint TOC_host{};  ///< time of capture, host's clock
    MediaPacket::TimeEstimateTrustIndex trust = MediaPacket::kTrustGood;
    std::int64_t stablePts = 0;  ///< ticks of the stream's RTP clock
    bool rtcpSync = false;       ///< there has been a sender report

    // The stream as it was when this frame was complete.
    std::chrono::milliseconds D{0};
    std::chrono::microseconds D_uncert{0};
    std::uint64_t reports = 0;    ///< sender reports so far
    TimePoint lastReport_host{};  ///< arrival of the last of them
    std::uint64_t lostPackets = 0;
};

}  // namespace camclock::app
