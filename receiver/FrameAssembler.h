#pragma once

#include "receiver/FrameType.h"

#include <camclock/TimePoint.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace camclock::receiver {

/// What is kept of an RTP packet once its payload has been looked at.
struct Piece {
    std::uint32_t rtp_ts = 0;
    std::uint32_t bytes = 0;  ///< payload
    TimePoint arrival_host{};
    std::uint16_t seq = 0;
    bool marker = false;
    FrameKind kind;
};

/// All pieces of one RTP time stamp.
struct Assembled {
    std::uint32_t rtp_ts = 0;
    std::uint16_t seq = 0;     ///< of the first piece in sequence
    TimePoint arrival_host{};  ///< of the piece that came first
    FrameKind kind;
    std::uint32_t packets = 0;
    std::uint64_t bytes = 0;
    std::uint32_t missing =
        0;  ///< sequence numbers that are missing in it, right before it, or where its end should be
};

/// Which packets belong together? Packets of one source, put back into their sequence, become frames: one
/// frame for each RTP time stamp, complete with its marker bit (RFC 3550, 5.1) or with the first packet of
/// another stamp.
///
/// Where a sequence number is missing, what comes behind it waits for it: until `kPatience` packets wait, or
/// the first of them has waited for `kDeadline`. Then the number counts as lost; a packet that comes later
/// still joins its frame if that is open, and is dropped as late if not. Without gaps nothing waits.
///
/// It allocates nothing. One thread at a time.
///
///     FrameAssembler assembler;
///     assembler.Add(piece, [](const Assembled& frame) { ... });
class FrameAssembler {
public:
    /// A network that reorders swaps neighbours; five places is the most that was asked of it.
    static constexpr std::size_t kPatience = 8;

    /// Longer than five packets of 25 frames a second, one packet each, take.
    static constexpr std::chrono::milliseconds kDeadline{250};

    /// Calls `sink(const Assembled&)` for every frame that this piece completes.
    template <class Sink>
    void Add(const Piece& piece, Sink&& sink) {
        if (started_ && piece.seq == expected_ && waiting_ == 0) {  // nearly all packets
            _Append(piece, sink);
            return;
        }
        const Place place = _Sort(piece);
        if (place == Place::kNewRun) {
            Flush(sink);
            _BeginRun(piece);
        } else if (place == Place::kPast) {
            return;
        }
        if (_GapIsLost(piece.arrival_host))
            _GiveUpGap();
        _Drain(sink);
    }

    /// Gives up a gap whose deadline has passed.
    template <class Sink>
    void Poll(TimePoint now_host, Sink&& sink) {
        if (waiting_ > 0 && _GapIsLost(now_host)) {
            _GiveUpGap();
            _Drain(sink);
        }
    }

    /// Delivers all there is: what waits behind gaps, and the frame that is still open.
    template <class Sink>
    void Flush(Sink&& sink) {
        while (waiting_ > 0) {
            _GiveUpGap();
            _Drain(sink);
        }
        _Complete(sink);
    }

    /// The next piece is of another source, or of another run of sequence numbers. Flush first. The counts
    /// stay.
    void Restart();

    std::uint64_t Lost() const { return lost_; }  ///< sequence numbers that never came
    std::uint64_t Late() const { return late_; }  ///< pieces that came twice, or after their frame: dropped

private:
    // RFC 3550, A.1: what lies further ahead, or behind, is another run of sequence numbers if its successor
    // follows.
    static constexpr int kMaxDropout = 3'000;
    static constexpr int kMaxMisorder = 100;
    static constexpr int kRemembered = 64;  // sequence numbers of which it is known whether they came

    /// So often has a marker to come before its frame's end until no marker is believed any more.
    static constexpr int kLies = 3;

    /// Where a piece stands that is not simply the next one.
    enum class Place {
        kPast,    ///< late, doubled or far off: it has been dealt with
        kWaits,   ///< it is among those that wait
        kNewRun,  ///< with the piece before it, it begins another run of sequence numbers
    };

    Place _Sort(const Piece& piece);
    Place _Wait(const Piece& piece);
    void _TakeLate(const Piece& piece, int behind);
    Place _TakeJump(const Piece& piece);
    void _BeginRun(const Piece& piece);
    bool _GapIsLost(TimePoint now_host) const;
    void _GiveUpGap();
    void _Join(const Piece& piece);

    template <class Sink>
    void _Drain(Sink&& sink) {
        while (waiting_ > 0) {
            std::size_t next = 0;
            while (next < waiting_ && wait_[next].seq != expected_)
                ++next;
            if (next == waiting_)
                return;
            const Piece piece = wait_[next];
            wait_[next] = wait_[--waiting_];
            _Append(piece, sink);
        }
    }

    template <class Sink>
    void _Append(const Piece& piece, Sink&& sink) {
        seen_ = seen_ << 1 | 1;
        known_ += known_ < kRemembered ? 1 : 0;
        expected_ = static_cast<std::uint16_t>(piece.seq + 1);
        started_ = true;
        if (open_ && piece.rtp_ts != frame_.rtp_ts) {
            frame_.missing += gap_;  // its last packets, as likely as the next frame's first
            _Complete(sink);
        }
        if (!open_ && anyCompleted_ && piece.rtp_ts == completed_ts_) {
            ++lies_;  // the marker came before the frame's end
            gap_ = 0;
            ++late_;
            return;
        }
        if (!open_) {
            frame_ = Assembled{};
            frame_.rtp_ts = piece.rtp_ts;
            frame_.seq = piece.seq;
            frame_.arrival_host = piece.arrival_host;
            open_ = true;
        }
        frame_.missing += gap_;
        gap_ = 0;
        _Join(piece);
        if (piece.marker && lies_ < kLies)
            _Complete(sink);
    }

    template <class Sink>
    void _Complete(Sink&& sink) {
        if (!open_)
            return;
        open_ = false;
        anyCompleted_ = true;
        completed_ts_ = frame_.rtp_ts;
        sink(static_cast<const Assembled&>(frame_));
    }

    Assembled frame_;
    std::array<Piece, kPatience> wait_{};  // behind a gap, in any order
    std::size_t waiting_ = 0;
    Piece jumped_;            // a piece far off the sequence
    std::uint64_t seen_ = 0;  // bit n: sequence number expected_ - 1 - n has come
    std::uint64_t lost_ = 0;
    std::uint64_t late_ = 0;
    std::uint32_t completed_ts_ = 0;  // of the last complete frame
    std::uint32_t gap_ = 0;           // lost numbers right before expected_
    int known_ = 0;                   // so many bits of seen_ mean something
    int lies_ = 0;                    // markers that came before their frame's end
    std::uint16_t expected_ = 0;      // the sequence number that comes next
    bool open_ = false;               // a frame is being collected
    bool started_ = false;
    bool anyCompleted_ = false;
    bool anyJumped_ = false;
};

}  // namespace camclock::receiver
