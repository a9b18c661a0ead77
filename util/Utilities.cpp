#include <camclock/Utilities.h>

#include "util/Arithmetic.h"
#include "util/CriticalSection.h"
#include "util/Immortal.h"
#include "util/PerfCounter.h"

#include <mutex>

namespace camclock {
namespace {

TimePoint SystemNow() {
    return std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
}

}  // namespace

struct Utilities::Clock {
    CriticalSection lock;      // guards both fields
    TimePoint base;            // host's time ...
    std::int64_t reference{};  // ... when the counter read this
};

Utilities& Utilities::getInstance() {
    static Utilities instance;
    return instance;
}

// Deliberate: the reference starts at 0, not at the counter's present value, so that the time means nothing
// until the application anchors the clock (UtilitiesClock.CountsFromConstructionWithoutAnchor).
Utilities::Utilities()
    : clock_(_TheClock()) {
    clock_.base = SystemNow();
}

// The threads of a camera with static storage read the clock until that camera is destroyed, which may come
// after all that was made on first use.
Utilities::Clock& Utilities::_TheClock() {
    static Immortal<Clock> clock;
    return *clock;
}

TimePoint Utilities::GetTime() {
    const std::lock_guard<CriticalSection> guard(clock_.lock);
    const auto elapsed = static_cast<double>(WrappingSubtract(PerfCounter::Read(), clock_.reference));
    const auto frequency = static_cast<double>(PerfCounter::Frequency());
    return MovedByMilliseconds(clock_.base, TruncateToInt64(elapsed / frequency * 1000.0 + 0.5));
}

void Utilities::ResetTime(TimePoint base, std::int64_t reference) {
    const std::lock_guard<CriticalSection> guard(clock_.lock);
    clock_.base = base;
    clock_.reference = reference;
}

void Utilities::AnchorToSystemClock() {
    const TimePoint now = SystemNow();
    ResetTime(now, GetCounter());
}

std::int64_t Utilities::GetCounter() {
    return PerfCounter::Read();
}

std::int64_t Utilities::GetCounterFrequency() {
    return PerfCounter::Frequency();
}

}  // namespace camclock
