#include "receiver/PtsBoard.h"

#include "receiver/TimeArithmetic.h"

#include <algorithm>
#include <chrono>

namespace camclock::receiver {
namespace {

/// A stream whose last frame is no older than this runs: two frames at one frame a second.
constexpr std::chrono::seconds kRuns{2};

}  // namespace

std::size_t PtsBoard::Join() {
    const std::lock_guard<std::mutex> guard(mutex_);
    auto free = std::find_if(places_.begin(), places_.end(), [](const Place& place) { return !place.taken; });
    if (free == places_.end())
        free = places_.emplace(places_.end());
    free->taken = true;
    return static_cast<std::size_t>(free - places_.begin());
}

void PtsBoard::Leave(std::size_t place) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const std::optional<Mark>& mark = places_[place].mark;
    if (mark && (!gone_ || mark->arrived_host > gone_->arrived_host))
        gone_ = mark;
    places_[place] = Place{};
}

void PtsBoard::Write(std::size_t place, const Mark& mark) {
    const std::lock_guard<std::mutex> guard(mutex_);
    places_[place].mark = mark;
}

std::int64_t PtsBoard::Begin(std::size_t place, TimePoint captured_host, TimePoint arrived_host,
                             std::uint32_t rate_Hz) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const Mark* from = nullptr;
    for (std::size_t i = 0; i < places_.size(); ++i) {
        const std::optional<Mark>& mark = places_[i].mark;
        if (mark && i != place && (from == nullptr || mark->arrived_host > from->arrived_host))
            from = &*mark;
    }
    std::optional<Mark>& own = places_[place].mark;
    const bool siblingRuns = from != nullptr && Elapsed(from->arrived_host, arrived_host) <= kRuns;
    if (!siblingRuns && own)
        from = &*own;
    if (from == nullptr && gone_)
        from = &*gone_;
    if (from == nullptr) {
        own = Mark{captured_host, arrived_host, 0, rate_Hz};  // whoever comes next sees the origin
        return 0;
    }
    const double seconds = static_cast<double>(from->pts) / static_cast<double>(from->rate_Hz) +
                           Seconds(Elapsed(from->captured_host, captured_host));
    return ToInt64(seconds * static_cast<double>(rate_Hz));
}

}  // namespace camclock::receiver
