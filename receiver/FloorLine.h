#pragma once

#include <camclock/TimePoint.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace camclock::receiver {

/// When would the fastest frame with this RTP stamp have arrived? From RTP stamps and arrivals alone: no
/// sender report is read, so neither their noise nor a step of the camera's wall clock can reach the answer.
///
/// With x a frame's stamp in seconds and y = arrival - x, the frames that meet no queue lie on a line
///
///     floor(x) = offset + slope (x - place)
///
/// and all others above it, since a network delays and never hastens. A Kalman filter of two states, offset
/// and slope, is fed with one low y of every second. What lies above the line is taken for a queue until the
/// stamps themselves prove that the camera's clock changed; what lies below it is proof that the line is too
/// high.
///
/// One object a stream, owned and called by the stream under its lock. It allocates nothing, throws nothing,
/// and answers any stamps and any times without undefined operation; nothing but finite numbers enters its
/// state.
///
///     FloorLine line(90'000);
///     const FloorLine::Answer answer = line.Feed(arrival_host, rtp_ts);
///     TimePoint captured_host = std::min(answer.fastest_host - leastLatency, arrival_host);
class FloorLine {
public:
    /// All times by the host's clock, rounded to the nearest tick; what no `TimePoint` can hold is its end.
    struct Answer {
        /// When the fastest frame of this stamp would have arrived; less the least latency: its time of
        /// capture. It may lie after the arrival by what the line is wrong: the caller takes the earlier.
        TimePoint fastest_host{};
        /// No frame of this stamp set out later than this, as long as the camera's rate is within kMaxRate of
        /// the host's: no statistics. Less the camera's least delay it is the end of the safe bound. The
        /// bound's beginning is `fastest_host` less uncertainty, the camera's greatest delay and the least
        /// round trip.
        TimePoint latest_host{};
        /// How far `fastest_host` may lie from the truth, up or down, in all but some 1 % of frames; rounded
        /// up. None while the line is lost: then another estimator's answer is the better one.
        std::optional<std::chrono::microseconds> uncertainty;
        bool settled = false;   ///< the first block was full: the line is more than its first frames
        bool happened = false;  ///< this frame brought an event: `LastEvent`
    };

    /// What changed the line otherwise than by following it.
    struct Event {
        enum class Kind {
            kNone,
            kSet,       ///< the RTP clock was set by `size`; slope and latency are kept
            kLower,     ///< frames arrived earlier than the line by -`size` (negative): a shorter route
            kLonger,    ///< frames have arrived by `size` above the line, in parallel, for half a minute: a
                        ///< longer route
            kReturned,  ///< and are back on the line; `size` is negative
            kRate,      ///< the stamps proved a change of the camera's rate: the line moved by `size`
            kAnew,      ///< nothing usable for kHold: the network is believed, the line moved by `size`
            kLost,      ///< the rate cannot be: no answer of our own for a while
        };
        Kind kind = Kind::kNone;
        /// Rounded; the ends of its range where it would not fit.
        std::chrono::microseconds size{0};

        /// A route that got longer, or shorter, or whose change is believed after kHold, by 1 ms or more:
        /// less is the network's own noise, and a millisecond is what events are counted in.
        bool IsRouteChange() const {
            return (kind == Kind::kLower || kind == Kind::kLonger || kind == Kind::kReturned ||
                    kind == Kind::kAnew) &&
                   (size >= std::chrono::milliseconds(1) || size <= std::chrono::milliseconds(-1));
        }
    };

    /// The camera's rate is not believed to be further from the host's than this: quartz is within 100 ppm,
    /// the worst resonators of cheap cameras within 500. A camera that is further off is lost first
    /// (`Kind::kLost`), for some ten seconds, and then believed up to a hundredth: stamps of 29.97 frames a
    /// second for 30 are 1,000 ppm off, whatever the crystal.
    static constexpr double kMaxRate = 600e-6;

    /// A stream whose RTP clock runs at `clockRate_Hz`. With 0 there is no line: every answer is the arrival,
    /// without uncertainty.
    explicit FloorLine(std::uint32_t clockRate_Hz)
        : clockRate_Hz_(clockRate_Hz) {}

    /// Takes a frame (or every packet of it: the first one of a stamp counts), answers it and learns from it.
    /// Frames whose stamps run back, B frames, are answered and not learned. Arrivals should not run back.
    Answer Feed(TimePoint arrival_host, std::uint32_t rtp_ts);

    /// Where `rtp_ts`, the nearer way round from the newest stamp, lies on the line as it stands:
    /// `fastest_host` without learning. None before the first frame, while the line is lost, and for clock
    /// rate 0.
    std::optional<TimePoint> Map(std::uint32_t rtp_ts) const;

    /// Forgets everything: another source, or an RTP clock that did not go on. (Stamps that were set, wraps
    /// and silences need no call: `Feed` sees them.)
    void Restart();

    /// By how much the camera's RTP clock runs faster than the host's, in millionths. 0 before the first
    /// block.
    double SkewPpm() const { return (1.0 / (1.0 + slope_) - 1.0) * 1e6; }

    /// How far the low of the last block lay above the line: what waits in the network now.
    std::chrono::microseconds Queue() const;

    /// The newest event; `Answer::happened` tells that there is a new one.
    const Event& LastEvent() const { return lastEvent_; }

private:
    /// A frame, in seconds since the origin: its stamp and its arrival.
    struct Place {
        double x = 0.0;
        double arrival = 0.0;
        double y() const { return arrival - x; }
    };

    /// The y of a block's frames above the line: the second lowest is what the filter gets.
    struct Block {
        double begin = 0.0;
        double lowest = 1e9;  // s: above any
        double second = 1e9;
        double place = 0.0;  // x of the second lowest
        double lowestPlace = 0.0;
        double sum = 0.0;
        std::uint32_t frames = 0;
    };

    /// A block's end: how many usual steps had passed at which stamp. Stamps in 10 us modulo 2^32 (12 hours):
    /// the cadence of a stretch of 20 s to 5e-7, in half of the memory.
    struct Cadence {
        std::uint32_t stamp = 0;
        std::uint32_t steps = 0;
    };

    /// A block off the line: its place, in the same unit, and its height over the line as it was.
    struct OffLine {
        Cadence cadence;
        std::uint32_t place = 0;
        float height = 0.0F;  // s; 24 bits of 0.1 s are 6 ns
    };

    /// A line through blocks off ours.
    struct Fit {
        double rate = 0.0;      // steeper than ours by so much
        double height = 0.0;    // s: above ours at the newest of them
        double residual = 0.0;  // s: standard deviation of a block from it
        double spread = 0.0;    // s: residual / spread is the rate's standard deviation
    };

    /// The newest `kSize` values, oldest first. Pushed once a block: moving them along costs nothing then.
    template <class T, std::size_t kSize>
    class Window {
    public:
        void Push(const T& value) {
            if (size_ == kSize) {
                for (std::size_t i = 1; i < kSize; ++i)
                    values_[i - 1] = values_[i];
                --size_;
            }
            values_[size_++] = value;
        }
        void Clear() { size_ = 0; }
        bool IsFull() const { return size_ == kSize; }
        std::size_t Size() const { return size_; }
        const T& Oldest() const { return values_[0]; }
        const T& Newest() const { return values_[size_ - 1]; }
        T* begin() { return values_.data(); }
        T* end() { return values_.data() + size_; }

    private:
        std::array<T, kSize> values_{};
        std::size_t size_ = 0;
    };

    // Blocks off the line in a row that are looked at together; on it, whose cadence is the camera's usual
    // one.
    static constexpr std::size_t kRing = 16;
    static constexpr std::size_t kCadences = 60;

    Place _Locate(TimePoint arrival_host, std::uint32_t rtp_ts, std::int64_t& ticks) const;
    void _Begin(TimePoint arrival_host);
    bool _RanBack(const Place& frame);
    double _BackBy() const;
    double _WholeSteps(double passed) const;
    double _Elapsed(double passed) const;
    void _Follow(const Place& frame);
    void _Set(double jump, double x);
    double _Floor(double x) const { return offset_ + slope_ * (x - place_); }
    double _Uncertainty(double x) const;
    double _Latest(const Place& frame, bool newest);
    double _Gate() const;
    bool _LiesOff(double low);
    double _LeastScatter() const;
    double _CadenceChange() const;
    void _ForgetOffLine();
    void _BeginBlock(double x);
    void _Predict(double x);
    void _Learn(double x);
    void _LearnOffLine(double low, double place);
    void _LearnOnLine(double low, double place);
    Fit _FitOffLine(double place);
    void _Judge(double place);
    bool _WasSetBy(double height) const;
    void _SetLate(double height, double place);
    void _ChangeRate(const Fit& fit, double doubt, double place);
    void _Lose(double x);
    void _Doubt(double size, double x);
    void _Happened(Event::Kind kind, double size_s);
    void _MoveOrigin();

    std::uint32_t clockRate_Hz_;

    // Where the seconds count from. Moved along, so that doubles never have to hold more than some hours.
    TimePoint origin_host_{};
    TimePoint newest_host_{};      // arrival of the newest stamp
    std::uint32_t newestRtp_ = 0;  // the newest stamp, and its ticks since the origin
    std::int64_t newestTicks_ = 0;

    // The line, its covariance, and the scatter of the blocks' lows.
    double offset_ = 0.0;
    double slope_ = 0.0;
    double place_ = 0.0;
    double P00_ = 0.0;  // s^2
    double P01_ = 0.0;  // s
    double P11_ = 0.0;
    double scatter_ = 0.0;  // s
    double lastLow_ = 0.0;  // s: height of the last block on the line
    double queue_ = 0.0;    // s: height of the last block

    // The stamps' own rhythm.
    Place newest_;
    Place lastBack_;          // the last frame that counted, in order or back
    double nominal_ = 0.0;    // s: usual step of the stamps; 0: not known yet
    double deviation_ = 0.0;  // s: usual distance of a step from a multiple of `nominal_`
    double odd_ = 0.0;  // s: the last step that was no multiple of `nominal_`; 0: none since the line was met
    double oddAt_ = 0.0;         // its x
    std::uint32_t steps_ = 0;    // usual steps so far, lost frames included; modulo 2^32
    std::uint32_t back_ = 0;     // frames in a row that ran back
    std::uint32_t between_ = 0;  // B frames that stand between two others
    double backFirst_ = 0.0;     // x of the first of them
    double backLow_ = 0.0;       // s: least height of them above the line

    Block block_;
    Window<OffLine, kRing> ring_;
    Window<Cadence, kCadences> cadences_;
    double lowered_ = 0.0;        // s: by how much the line went down since the ring began
    double leftGate_ = 0.0;       // s: the gate when it began
    double lastUsable_ = 0.0;     // x of the last block that lay on the line or lowered it
    double since_ = 0.0;          // x of the first frame
    double settledFor_ = 0.0;     // s with blocks on the line, pauses left out
    double doubt_ = 0.0;          // s: by how much the line moved on the network's word alone
    double doubtFrom_ = 0.0;      // x of that
    double ceiling_ = 0.0;        // s: leaking minimum of y, for `latest_host`
    double ceilingAt_ = 0.0;      // its x
    double lostUntil_ = 0.0;      // x
    double limit_ = kMaxRate;     // of the slope
    double lostFor_ = 0.0;        // s: length of the last time lost; 0: never
    int tooFast_ = 0;             // judgements in a row with an impossible rate
    int atLimit_ = 0;             // blocks in a row with the slope at its limit
    double told_ = 0.0;           // s: the longer route that was told
    std::uint32_t parallel_ = 0;  // judgements in a row that found the line's parallel
    bool wasOdd_ = false;         // the newest step
    bool started_ = false;
    bool firstBlock_ = true;
    bool fine_ = false;  // arrivals are known to better than whole milliseconds
    bool hasCeiling_ = false;
    bool leftNearby_ = false;  // the ring began without a jump
    bool lost_ = false;
    bool happened_ = false;
    Event lastEvent_;
};

}  // namespace camclock::receiver
