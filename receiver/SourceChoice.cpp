#include "receiver/SourceChoice.h"

#include "receiver/TimeArithmetic.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace camclock::receiver {

SourceChoice::Verdict SourceChoice::Take(const Arrived& arrived) {
    const TimePoint now = arrived.piece.arrival_host;
    if (!source_)
        source_ = arrived.ssrc;
    if (arrived.ssrc == *source_) {
        if (!proven_) {
            inSequence_ = arrived.Follows(next_) ? inSequence_ + 1 : 1;
            proven_ = inSequence_ >= kInSequence;
        }
        next_ = arrived.Next();
        last_host_ = now;
        if (left_host_ && Elapsed(*left_host_, now) > kSilence)
            left_host_.reset();  // it goes on all the same
        return Verdict::kOurs;
    }

    Candidate& candidate = _CandidateFor(arrived);
    _Count(candidate, arrived);
    const bool believed =
        candidate.inSequence >= kInSequence && (!proven_ || Elapsed(last_host_, now) >= kSilence);
    if (!believed && !left_host_)
        return Verdict::kForeign;
    believed_ = std::move(candidate.kept);
    Restart();
    source_ = arrived.ssrc;
    next_ = arrived.Next();
    proven_ = believed;
    last_host_ = now;
    return Verdict::kChanged;
}

std::vector<Arrived> SourceChoice::TakeKept() {
    return std::exchange(believed_, {});
}

void SourceChoice::Bye(std::uint32_t ssrc, TimePoint arrival_host) {
    if (source_ == ssrc)
        left_host_ = arrival_host;
}

void SourceChoice::Restart() {
    source_.reset();
    left_host_.reset();
    next_.reset();
    inSequence_ = 0;
    proven_ = false;
    candidates_.clear();
}

/// Its own place, else a new one, else that of the least promising.
SourceChoice::Candidate& SourceChoice::_CandidateFor(const Arrived& arrived) {
    const auto own = std::find_if(candidates_.begin(), candidates_.end(),
                                  [&](const Candidate& candidate) { return candidate.ssrc == arrived.ssrc; });
    if (own != candidates_.end())
        return *own;
    Candidate fresh;
    fresh.ssrc = arrived.ssrc;
    if (candidates_.size() < kCandidates)
        return candidates_.emplace_back(std::move(fresh));
    const auto least =
        std::min_element(candidates_.begin(), candidates_.end(), [](const Candidate& a, const Candidate& b) {
            return a.inSequence != b.inSequence ? a.inSequence < b.inSequence : a.last_host < b.last_host;
        });
    fresh.kept = std::move(least->kept);  // the memory alone
    fresh.kept.clear();
    return *least = std::move(fresh);
}

void SourceChoice::_Count(Candidate& candidate, const Arrived& arrived) {
    const TimePoint now = arrived.piece.arrival_host;
    const bool follows = candidate.inSequence > 0 && arrived.Follows(candidate.next);
    const bool paused = candidate.inSequence > 0 && Elapsed(candidate.last_host, now) > kPause &&
                        last_host_ > candidate.last_host;
    if (paused)
        candidate.kept.clear();
    // Once it has been in sequence, a lost packet does not take that away (RFC 3550, A.1).
    if (paused || (!follows && candidate.inSequence < kInSequence))
        candidate.inSequence = 1;
    else if (follows && candidate.inSequence < kInSequence)
        ++candidate.inSequence;
    candidate.next = arrived.Next();
    candidate.last_host = now;
    candidate.kept.push_back(arrived);
    _BoundKept();
}

/// Whoever has most loses the older half. The newest packet of a candidate always stays.
void SourceChoice::_BoundKept() {
    std::size_t all = 0;
    std::vector<Arrived>* most = &candidates_.front().kept;
    for (Candidate& candidate : candidates_) {
        all += candidate.kept.size();
        if (candidate.kept.size() > most->size())
            most = &candidate.kept;
    }
    if (most->size() > kKeptOfOne || all > kKept)
        most->erase(most->begin(), most->begin() + static_cast<std::ptrdiff_t>(most->size() / 2));
}

}  // namespace camclock::receiver
