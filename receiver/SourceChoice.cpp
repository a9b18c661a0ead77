#include "receiver/SourceChoice.h"

#include "receiver/TimeArithmetic.h"

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
    for (Candidate& candidate : candidates_)
        candidate = Candidate{};
}

/// Its own place, else that of the least promising.
SourceChoice::Candidate& SourceChoice::_CandidateFor(const Arrived& arrived) {
    Candidate* least = &candidates_.front();
    for (Candidate& candidate : candidates_) {
        if (candidate.inSequence > 0 && candidate.ssrc == arrived.ssrc)
            return candidate;
        if (candidate.inSequence != least->inSequence ? candidate.inSequence < least->inSequence
                                                      : candidate.last_host < least->last_host)
            least = &candidate;
    }
    least->ssrc = arrived.ssrc;
    least->inSequence = 0;
    least->kept.clear();
    return *least;
}

void SourceChoice::_Count(Candidate& candidate, const Arrived& arrived) {
    const TimePoint now = arrived.piece.arrival_host;
    const bool follows = candidate.inSequence > 0 && arrived.Follows(candidate.next);
    const bool paused = candidate.inSequence > 0 && Elapsed(candidate.last_host, now) > kPause;
    if (paused)
        candidate.kept.clear();
    // Once it has been in sequence, a lost packet does not take that away (RFC 3550, A.1).
    if (paused || (!follows && candidate.inSequence < kInSequence))
        candidate.inSequence = 1;
    else if (follows && candidate.inSequence < kInSequence)
        ++candidate.inSequence;
    candidate.next = arrived.Next();
    candidate.last_host = now;
    if (candidate.kept.size() == kKept)
        candidate.kept.erase(candidate.kept.begin(), candidate.kept.begin() + kKept / 2);
    candidate.kept.push_back(arrived);
}

}  // namespace camclock::receiver
