#pragma once

#include <camclock/MediaPacket.h>

namespace camclock {

/// How the packet trace calls a trust index: only "good" is good, the reserved value is not.
constexpr const char* TrustText(MediaPacket::TimeEstimateTrustIndex trustIndex) {
    return trustIndex == MediaPacket::kTrustGood ? "Good" : "Bad";
}

}  // namespace camclock
