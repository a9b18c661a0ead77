#include "receiver/HostClock.h"

#include <camclock/Utilities.h>

#include <atomic>
#include <cstdint>

namespace camclock::receiver {
namespace {

// Written by Anchor before any thread runs that asks; atomic so that a late anchor is no data race.
std::atomic<std::int64_t> base_ticks{0};
std::atomic<std::int64_t> reference{0};

}  // namespace

void HostClock::Anchor() {
    const auto now = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
    const std::int64_t counter = Utilities::GetCounter();
    Utilities::getInstance().ResetTime(now, counter);
    base_ticks = now.time_since_epoch().count();
    reference = counter;
}

TimePoint HostClock::Now() {
    const std::int64_t frequency = Utilities::GetCounterFrequency();
    const std::int64_t counts = Utilities::GetCounter() - reference;
    // Whole seconds and the rest apart: counts of 1 ns times 10^7 would leave 64 bits after a quarter of an
    // hour.
    const std::int64_t ticks =
        counts / frequency * Ticks::period::den + counts % frequency * Ticks::period::den / frequency;
    return TimePoint(Ticks(base_ticks + ticks));
}

}  // namespace camclock::receiver
