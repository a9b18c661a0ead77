#pragma once

#include "probe/TimeProbe.h"

namespace camclock {

/// Is a probing good enough to become `D`? Its uncertainty lies in 0 ... 30 ms, 30 left out; the empty result
/// and not-a-number do not.
constexpr bool IsAcceptable(const ProbeResult& result) {
    return result.uncertainty < 30.0 && !(result.uncertainty < 0.0);
}

}  // namespace camclock
