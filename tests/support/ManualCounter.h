#pragma once

#include "util/PerfCounter.h"

#include <camclock/Utilities.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace camclock::test {

/// Puts the host's counter under the test's control: while one of these lives,
/// `Utilities::GetTime` moves only when the test says so. One at a time; it counts in 100 ns and
/// restores the system's counter at its end.
class ManualCounter {
public:
    /// Starts the host's clock at `start`.
    explicit ManualCounter(TimePoint start = TimePoint(Ticks(17'000'000'000'000'000))) {
        count() = 0;
        PerfCounter::Replace(&ManualCounter::Read, 10'000'000);
        Utilities::getInstance().ResetTime(start, 0);
    }

    ~ManualCounter() {
        PerfCounter::Restore();
        Utilities::getInstance().AnchorToSystemClock();
    }

    ManualCounter(const ManualCounter&) = delete;
    ManualCounter& operator=(const ManualCounter&) = delete;

    /// Lets `time` pass on the host.
    void Advance(Ticks time) { count() += time.count(); }

    /// What `Utilities::GetTime` answers now.
    TimePoint Now() const { return Utilities::getInstance().GetTime(); }

private:
    static std::atomic<std::int64_t>& count() {
        static std::atomic<std::int64_t> value{0};
        return value;
    }
    static std::int64_t Read() { return count(); }
};

}  // namespace camclock::test
