#pragma once

#include "receiver/FrameAssembler.h"

#include <camclock/TimePoint.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace camclock::receiver {

/// Something of a source that arrived: a piece, or a frame that somebody else has put together.
struct Arrived {
    std::uint32_t ssrc = 0;
    Piece piece;  ///< of a frame: stamp, sequence number and arrival of its first packet
    std::optional<Assembled> frame;

    /// The sequence number that follows a packet.
    std::uint16_t Next() const { return static_cast<std::uint16_t>(piece.seq + 1); }

    /// Is it the one that was due? Of frames nobody knows whether packets are missing between them.
    bool Follows(std::optional<std::uint16_t> next) const { return frame || next == piece.seq; }
};

/// Whose packets are the stream's? The first source that is seen; another one (RFC 3550, A.1) after its third
/// packet in sequence, once the old one has been silent for a second, or at once after the old one's BYE.
/// Until then it is foreign; what has come of it meanwhile is kept and handed over when it is believed.
///
/// One thread at a time. It allocates only for foreign packets, and keeps no more than `kKept` of them.
class SourceChoice {
public:
    enum class Verdict {
        kOurs,
        kForeign,
        kChanged,  ///< its source is believed from now on: `TakeKept` gives what came of it, this one last
    };

    Verdict Take(const Arrived& arrived);

    /// Those that came before their source was believed, in order, the newest included.
    std::vector<Arrived> TakeKept();

    void Bye(std::uint32_t ssrc, TimePoint arrival_host);

    /// The next packet is believed at once, whatever its source.
    void Restart();

    /// None before the first packet, and after `Restart`.
    std::optional<std::uint32_t> Source() const { return source_; }

private:
    static constexpr int kInSequence = 3;
    static constexpr std::chrono::seconds kSilence{1};
    /// Strays of other sources may come between the packets of the next one.
    static constexpr std::size_t kCandidates = 64;
    /// Of one candidate: more than a second of 20 Mbit/s.
    static constexpr std::size_t kKeptOfOne = 2'048;
    static constexpr std::size_t kKept = 4 * kKeptOfOne;
    /// A candidate that pauses for longer while the source goes on starts anew: a stray packet now and then
    /// is none. Where the source is silent, a candidate may be as slow as it likes.
    static constexpr std::chrono::seconds kPause{2};

    struct Candidate {
        std::uint32_t ssrc = 0;
        int inSequence = 0;  // 0: nothing has been counted yet
        std::uint16_t next = 0;
        TimePoint last_host{};
        std::vector<Arrived> kept;
    };

    Candidate& _CandidateFor(const Arrived& arrived);
    void _Count(Candidate& candidate, const Arrived& arrived);
    void _BoundKept();

    std::optional<std::uint32_t> source_;
    std::optional<std::uint16_t> next_;   // sequence number that follows it
    int inSequence_ = 0;                  // packets of it in sequence, up to kInSequence
    bool proven_ = false;                 // there have been enough of them
    TimePoint last_host_{};               // arrival of the source's last packet
    std::optional<TimePoint> left_host_;  // it has said BYE
    std::vector<Candidate> candidates_;   // none before the first foreign packet
    std::vector<Arrived> believed_;
};

}  // namespace camclock::receiver
