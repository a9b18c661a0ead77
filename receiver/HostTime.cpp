#include <camclock/Receiver.h>
#include <camclock/Utilities.h>

#include "receiver/TimeArithmetic.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace camclock::receiver {
namespace {

TimePoint SystemNow() {
    return std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
}

/// When this library was loaded: the process clock cannot have been made much earlier.
const TimePoint loadedAt = SystemNow();

/// A reading of the counter in ticks. Whole seconds and the rest apart: counts of 1 ns times 10^7 would leave
/// 64 bits after a quarter of an hour.
Ticks TicksOf(std::int64_t counter) {
    constexpr std::int64_t kTicksPerSecond = Ticks::period::den;
    const std::int64_t frequency = Utilities::GetCounterFrequency();
    return Ticks(counter / frequency * kTicksPerSecond + counter % frequency * kTicksPerSecond / frequency);
}

/// The process clock without its rounding to milliseconds: the same counter, and an anchor that follows the
/// process clock's whenever the application sets that.
class HostTime {
public:
    TimePoint Now() {
        const std::int64_t counter = Utilities::GetCounter();
        // One comparison for a counter that has run on, and for one that a test has put in the other's place.
        const std::uint64_t sinceCheck =
            static_cast<std::uint64_t>(counter) - checkedAt_.load(std::memory_order_relaxed);
        if (sinceCheck >= checkAfter_.load(std::memory_order_relaxed))
            _Check();
        return TimePoint(Ticks(origin_ticks_.load(std::memory_order_relaxed)) + TicksOf(counter));
    }

private:
    void _Check() {
        const std::lock_guard<std::mutex> guard(mutex_);
        const std::int64_t counter = Utilities::GetCounter();
        const Ticks sinceOrigin = TicksOf(counter);
        const TimePoint rounded = Utilities::getInstance().GetTime();
        if (!anchored_ && _IsUnset(rounded - sinceOrigin)) {
            const TimePoint now = SystemNow();
            const std::int64_t reference = Utilities::GetCounter();
            Utilities::getInstance().ResetTime(now, reference);
            _SetOrigin(now - TicksOf(reference));
        } else {
            const Ticks beside = TimePoint(Ticks(origin_ticks_.load())) + sinceOrigin - rounded;
            constexpr std::chrono::microseconds kRounding{
                600};  // half a millisecond, and the time between two readings
            if (!anchored_ || beside > kRounding || beside < -kRounding)
                _Follow();
        }
        anchored_ = true;
        checkedAt_ = static_cast<std::uint64_t>(counter);
        checkAfter_ = static_cast<std::uint64_t>(Utilities::GetCounterFrequency()) / 100;  // 10 ms
    }

    /// Until somebody anchors it, the process clock counts from its making with the whole counter on top.
    static bool _IsUnset(TimePoint atCounterZero) {
        constexpr std::chrono::seconds kSlack{1};
        return atCounterZero > loadedAt - kSlack && atCounterZero < SystemNow() + kSlack;
    }

    /// Takes over the process clock's anchor: where its milliseconds change, it shows half of one too many.
    /// Takes some milliseconds at most; where the counter stands still, its reading is taken for a whole
    /// millisecond.
    void _Follow() {
        Utilities& clock = Utilities::getInstance();
        const std::int64_t first = Utilities::GetCounter();
        TimePoint shown = clock.GetTime();
        _SetOrigin(shown - TicksOf(first));
        Ticks narrowest = (Ticks::max)();
        std::int64_t before = first;  // the counter before `shown` was read last
        for (int reading = 0; reading < 100'000; ++reading) {
            const std::int64_t here = Utilities::GetCounter();
            const TimePoint now = clock.GetTime();
            const std::int64_t after = Utilities::GetCounter();
            // The change lies between the readings around it; a thread that was put aside meanwhile looks
            // again.
            if (now != shown && TicksOf(after - before) < narrowest) {
                narrowest = TicksOf(after - before);
                _SetOrigin(now - std::chrono::microseconds(500) - TicksOf(before) - narrowest / 2);
            }
            constexpr std::chrono::microseconds kNarrow{20};
            if (narrowest < kNarrow || TicksOf(after - first) > std::chrono::milliseconds(20) ||
                (reading == 1'000 && after == first))
                return;
            shown = now;
            before = here;
        }
    }

    void _SetOrigin(TimePoint atCounterZero) { origin_ticks_ = atCounterZero.time_since_epoch().count(); }

    // Each by itself: whoever reads an origin of a moment ago reads a time of a moment ago.
    std::atomic<std::int64_t> origin_ticks_{0};  // the time when the counter read 0
    std::atomic<std::uint64_t> checkedAt_{0};    // counter
    std::atomic<std::uint64_t> checkAfter_{0};   // counts
    std::mutex mutex_;                           // guards anchored_, and makes a check one step
    bool anchored_ = false;
};

HostTime& Clock() {
    static HostTime clock;
    return clock;
}

}  // namespace

TimePoint Now() {
    return Clock().Now();
}

TimePoint FromSystem(std::chrono::system_clock::time_point time) {
    const TimePoint now = Now();
    const Ticks age = Elapsed(std::chrono::time_point_cast<Ticks>(time), SystemNow());
    return age > Ticks(0) ? Moved(now, -age) : now;
}

}  // namespace camclock::receiver
