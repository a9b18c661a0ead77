#pragma once

#include "probe/TimeProbe.h"
#include "util/Tick.h"

#include <camclock/TimeFilter.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace camclock {

/// What the public header need not show. Destroyed from the last to the first.
struct TimeFilter::State {
    /// "None given yet", in `expectedD_`.
    static constexpr std::int64_t kNoExpectedD = (std::numeric_limits<std::int64_t>::min)();

    std::mutex stablePtsT0Mutex;  // makes check and set in SetStablePtst0 one step; readers need no lock

    std::thread probeThread;
    std::optional<Sleeper> probeSleeper;  // from the first UseICMP on: packet threads set its time
    std::unique_ptr<TimeProbe> probe;     // like the rest, the probing thread's own while that runs
    std::string probeUrl;
    std::int64_t pollInterval_s = 0;
    std::int64_t nextProbeAt_ns = MonotonicNow_ns();
    std::unique_ptr<std::ofstream> probeLog;
};

}  // namespace camclock
