#include "receiver/FrameAssembler.h"

#include <algorithm>

namespace camclock::receiver {
namespace {

/// From one sequence number to another, the nearer way round.
int Distance(std::uint16_t from, std::uint16_t to) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(to - from));
}

}  // namespace

void FrameAssembler::Restart() {
    waiting_ = 0;
    known_ = 0;
    gap_ = 0;
    open_ = false;
    started_ = false;
    anyCompleted_ = false;
    anyJumped_ = false;
}

FrameAssembler::Place FrameAssembler::_Sort(const Piece& piece) {
    if (!started_) {
        started_ = true;
        expected_ = piece.seq;
        return _Wait(piece);
    }
    const int ahead = Distance(expected_, piece.seq);
    if (ahead >= kMaxDropout || ahead < -kMaxMisorder)
        return _TakeJump(piece);
    if (ahead >= 0)
        return _Wait(piece);
    _TakeLate(piece, -ahead);
    return Place::kPast;
}

FrameAssembler::Place FrameAssembler::_Wait(const Piece& piece) {
    for (std::size_t i = 0; i < waiting_; ++i) {
        if (wait_[i].seq == piece.seq) {
            ++late_;
            return Place::kPast;
        }
    }
    wait_[waiting_++] = piece;  // there is room: whoever fills it up gives up the gap and drains at once
    return Place::kWaits;
}

void FrameAssembler::_TakeLate(const Piece& piece, int behind) {
    const bool beforeTheFirst = behind > known_ && known_ < kRemembered;
    const std::uint64_t bit = behind <= known_ ? std::uint64_t{1} << (behind - 1) : 0;
    const bool wasLost = bit != 0 && (seen_ & bit) == 0;
    if (wasLost) {
        seen_ |= bit;
        --lost_;
    }
    if (!(wasLost || beforeTheFirst) || !open_ || piece.rtp_ts != frame_.rtp_ts) {
        ++late_;
        return;
    }
    if (wasLost && frame_.missing > 0)
        --frame_.missing;
    if (Distance(piece.seq, frame_.seq) > 0)
        frame_.seq = piece.seq;
    _Join(piece);
}

/// A piece far off the sequence is kept, and believed once its successor follows.
FrameAssembler::Place FrameAssembler::_TakeJump(const Piece& piece) {
    if (anyJumped_ && piece.seq == static_cast<std::uint16_t>(jumped_.seq + 1)) {
        --late_;
        return Place::kNewRun;
    }
    anyJumped_ = true;
    jumped_ = piece;
    ++late_;
    return Place::kPast;
}

/// From the piece that jumped on; `piece` is its successor.
void FrameAssembler::_BeginRun(const Piece& piece) {
    const int ahead = Distance(expected_, jumped_.seq);
    const std::uint32_t gap = ahead > 0 ? static_cast<std::uint32_t>(ahead) : 0;
    Restart();
    started_ = true;
    lost_ += gap;
    gap_ = gap;
    expected_ = jumped_.seq;
    _Wait(jumped_);
    _Wait(piece);
}

bool FrameAssembler::_GapIsLost(TimePoint now_host) const {
    if (waiting_ == 0)
        return false;
    if (waiting_ == kPatience)
        return true;
    TimePoint first = wait_[0].arrival_host;
    bool next = false;
    for (std::size_t i = 0; i < waiting_; ++i) {
        first = (std::min)(first, wait_[i].arrival_host);
        next = next || wait_[i].seq == expected_;
    }
    // Written so that no difference overflows.
    return !next && first <= (TimePoint::max)() - kDeadline && now_host > first + kDeadline;
}

/// The sequence goes on with the first of the pieces that wait.
void FrameAssembler::_GiveUpGap() {
    int nearest = 1 << 16;
    for (std::size_t i = 0; i < waiting_; ++i)
        nearest = (std::min)(nearest, Distance(expected_, wait_[i].seq));
    if (nearest <= 0)
        return;  // nothing is missing
    lost_ += static_cast<std::uint64_t>(nearest);
    gap_ += static_cast<std::uint32_t>(nearest);
    seen_ = nearest < kRemembered ? seen_ << nearest : 0;
    known_ = (std::min)(known_ + nearest, kRemembered);
    expected_ = static_cast<std::uint16_t>(expected_ + nearest);
}

void FrameAssembler::_Join(const Piece& piece) {
    ++frame_.packets;
    frame_.bytes += piece.bytes;
    frame_.arrival_host = (std::min)(frame_.arrival_host, piece.arrival_host);
    if (frame_.kind.type == MediaPacket::kFrameUnknown)
        frame_.kind.type = piece.kind.type;
    frame_.kind.key = frame_.kind.key || piece.kind.key;
}

}  // namespace camclock::receiver
