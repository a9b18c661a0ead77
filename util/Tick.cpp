#include "util/Tick.h"

#include "util/Arithmetic.h"
#include "util/PerfCounter.h"

#include <algorithm>
#include <mutex>

namespace camclock {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

std::int64_t MonotonicNow_ns() {
    const std::int64_t count = PerfCounter::Read();
    const std::int64_t frequency = PerfCounter::Frequency();
    return WrappingAdd(WrappingMultiply(count / frequency, kNanosecondsPerSecond),
                       WrappingMultiply(count % frequency, kNanosecondsPerSecond) / frequency);
}

Tick::Tick() {
    thread_ = std::thread(&Tick::_Run, this);
}

Tick::~Tick() {
    ending_ = true;
    thread_.join();
}

Tick::Seat Tick::_Take(Sleeper& sleeper) {
    const std::lock_guard<CriticalSection> guard(seatsLock_);
    if (freeSeats_.empty()) {
        freeSeats_.reserve((rows_.size() + 1) * Row::kSeats);  // so that giving up a seat never allocates
        rows_.push_back(std::make_unique<Row>());
        for (std::size_t number = Row::kSeats; number-- > 0;) {
            rows_.back()->wakeAt_ns[number] = Sleeper::kNever;
            freeSeats_.push_back({rows_.back().get(), number});
        }
    }
    const Seat seat = freeSeats_.back();
    freeSeats_.pop_back();
    seat.row->sleepers[seat.number] = &sleeper;
    return seat;
}

void Tick::_GiveUp(Seat seat) {
    const std::lock_guard<CriticalSection> guard(seatsLock_);
    seat.row->wakeAt_ns[seat.number] = Sleeper::kNever;
    freeSeats_.push_back(seat);
}

void Tick::_Run() {
    auto next = std::chrono::steady_clock::now();
    while (!ending_) {
        // A tick that comes too late, since the machine was busy or slept, is not made up for.
        next = (std::max)(next + kPeriod, std::chrono::steady_clock::now());
        std::this_thread::sleep_until(next);
        _Look();
    }
}

void Tick::_Look() {
    const std::int64_t now_ns = MonotonicNow_ns();
    const std::lock_guard<CriticalSection> guard(seatsLock_);
    for (const std::unique_ptr<Row>& row : rows_) {
        for (std::size_t number = 0; number < Row::kSeats; ++number) {
            if (row->wakeAt_ns[number].load(std::memory_order_acquire) <= now_ns)
                row->sleepers[number]->Rouse();
        }
    }
}

Sleeper::Sleeper()
    : seat_(tick_->_Take(*this))
    , wakeAt_ns_(seat_.row->wakeAt_ns[seat_.number]) {}

Sleeper::~Sleeper() {
    tick_->_GiveUp(seat_);
}

}  // namespace camclock
