#include "receiver/FloorLine.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace camclock::receiver {
namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kTicksPerMillisecond = 10'000;
constexpr double kRtpWrap = 4294967296.0;  // 2^32 ticks (RFC 3550, 5.1)

// Random walk of a crystal's frequency, 1/sqrt(s). In a steady room it is 1e-8; the sun on a camera needs
// more.
constexpr double kWalk = 3e-8;

// A block lasts long enough for a frame that met no queue, and has enough frames for a second lowest.
constexpr double kBlock = 1.0;  // s
constexpr std::uint32_t kBlockFrames = 25;
constexpr double kSlowBlock = 5.0;  // s: enough with
constexpr std::uint32_t kSlowBlockFrames = 8;

// A low above the line weighs 1/9 of one below it: what is late may have waited, what is early has not.
constexpr double kUpVariance = 3.0 * 3.0;
constexpr double kGate = 4.0;  // standard deviations that still lie on the line

// So long may a queue last; after that without one usable block the network is believed.
constexpr double kHold = 3600.0;  // s

// Least scatter of the lows: two ticks of the RTP clock. With arrivals in whole milliseconds: their rounding.
constexpr double kLeastScatter = 20e-6;          // s
constexpr double kLeastScatterWholeMs = 300e-6;  // s
constexpr double kWholeMsDoubt = 600e-6;         // s: half a millisecond, and the phase that nobody knows

// Least step of the RTP clock that is seen by itself: clocks that are off by less than 0.128 s are slewed by
// their NTP client (RFC 5905, 11.3), not set.
constexpr double kStep = 0.1;          // s
constexpr std::uint32_t kBack = 8;     // frames in a row that prove a step back
constexpr std::uint32_t kBetween = 4;  // B frames stand in runs of no more than that
constexpr std::uint32_t kFew = 3;      // frames that may all be late: their arrivals are not believed
constexpr double kWholeSteps = 16.0;   // usual steps that their mean tells better than arrivals do

// A smaller one shows in stamps that are regular otherwise, by a step that is no multiple of the usual one,
// and by blocks that lie off the line by what is odd about it. Per usual step: where frames are lost, their
// mean is off.
constexpr double kOdd = 1e-3;            // s
constexpr double kOddDeviations = 10.0;  // of `deviation_`

// Averages of the cadence: over 16 and 64 frames, and what is added is clipped, so that a pause moves them
// little.
constexpr double kNominalClip = 2e-3;     // s
constexpr double kDeviationClip = 20e-3;  // s
constexpr double kTickNoise = 8e-6;       // s: mean deviation that the rounding of a 90 kHz stamp makes
// Noise of the stamps, as mean distance of a step from the usual one, to twice its standard deviation.
constexpr double kDeviationShare = 1.8;

// What is not known at the start, standard deviations: the first frame's delay, a crystal's rate; the delay
// of the frame after the stamps were set; the same once more when the network is believed.
constexpr double kFirstOffset = 50e-3;  // s
constexpr double kSetOffset = 10e-3;    // s
constexpr double kAnewOffset = 5e-3;    // s
constexpr double kUnknownSlope = 4.0;   // s: what a slope at its limit makes in some blocks
constexpr double kSettling = 30.0;      // s: so long the filter's own variance tells the doubt

// What no crystal keeps may still be a camera's rate: stamps of 29.97 frames a second for 30 are 1,000 ppm
// off. Who was lost once is believed this much.
constexpr double kWildRate = 10'000e-6;

// No answer for some seconds, then the line is tried anew with the wilder rate; if that fails at once, after
// a minute, and twice as long each time.
constexpr double kLostFirst = 10.0;   // s
constexpr double kLost = 60.0;        // s
constexpr double kLostAgain = 300.0;  // s: five times what it takes to lose a camera that cannot be followed
constexpr int kTooFast = 60;          // blocks in a row on a clean line with an impossible rate
constexpr int kAtLimit = 8;           // blocks in a row with the slope at its limit

// A clean line beside ours: a longer route when it is parallel, the crystal's temperature when it is nearly
// so, the camera's clock when it is far from it.
constexpr double kWarm = 10e-6;
constexpr double kParallel = 50e-6;
constexpr double kClock = 100e-6;

constexpr std::size_t kWitnessed = 4;  // blocks off the line that suffice when the stamps bear witness

// Standard deviations by which a rate must differ from ours. A queue's 16 blocks look like a line now and
// then, and a wrong rate costs milliseconds; a wrong warming costs a tenth of one.
constexpr double kSureOfWarm = 3.0;
constexpr double kSureOfRate = 5.0;

constexpr double kPlacesPerSecond = 1e5;  // the memory's unit of stamps, 10 us

// After a day without a frame the crystal's walk alone, kWalk sqrt(t^3 / 3), makes half a second: the line
// starts anew, as it does when the host's clock is set by so much.
constexpr std::int64_t kDay = 86'400 * kTicksPerSecond;

// The origin moves on after an hour: doubles of some hours resolve a picosecond.
constexpr double kMoveOrigin = 3600.0;  // s

constexpr double Square(double value) {
    return value * value;
}

/// `value` as a whole number, nearest; its range's ends where it does not fit.
std::int64_t Rounded(double value) {
    constexpr double kEnd = 9.2e18;  // s below 2^63
    return static_cast<std::int64_t>(std::clamp(value, -kEnd, kEnd) + (value < 0.0 ? -0.5 : 0.5));
}

/// a + b, or the end of the range that it passes.
std::int64_t SaturatingAdd(std::int64_t a, std::int64_t b) {
    using Range = std::numeric_limits<std::int64_t>;
    if (b > 0 ? a > (Range::max)() - b : a < (Range::min)() - b)
        return b > 0 ? (Range::max)() : (Range::min)();
    return a + b;
}

/// From `from` to `to` in ticks. Exact whenever it fits, wherever the two lie: the difference of wrapping
/// counts.
std::int64_t TicksBetween(TimePoint from, TimePoint to) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(to.time_since_epoch().count()) -
                                     static_cast<std::uint64_t>(from.time_since_epoch().count()));
}

double Seconds(TimePoint from, TimePoint to) {
    return static_cast<double>(TicksBetween(from, to)) / kTicksPerSecond;
}

TimePoint Later(TimePoint time, double seconds) {
    return TimePoint(Ticks(SaturatingAdd(time.time_since_epoch().count(), Rounded(seconds * 1e7))));
}

/// Whether the two lie within a day. (Points at both ends of the range wrap around to neighbours.)
bool WithinADay(TimePoint a, TimePoint b) {
    return a <= b ? b.time_since_epoch().count() <= SaturatingAdd(a.time_since_epoch().count(), kDay)
                  : a.time_since_epoch().count() <= SaturatingAdd(b.time_since_epoch().count(), kDay);
}

/// The nearest multiple of the usual step: how many frames stand between two stamps, lost ones counted.
double StepsIn(double step, double nominal) {
    return nominal > 0.0 ? static_cast<double>(Rounded(std::clamp(step / nominal, 1.0, 1e9))) : 1.0;
}

std::uint32_t PlaceUnits(double seconds) {
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(Rounded(seconds * kPlacesPerSecond)));
}

/// A difference of two such places.
double Seconds(std::uint32_t from, std::uint32_t to) {
    return (to - from) / kPlacesPerSecond;
}

}  // namespace

FloorLine::Answer FloorLine::Feed(TimePoint arrival_host, std::uint32_t rtp_ts) {
    if (clockRate_Hz_ == 0)
        return {arrival_host, arrival_host, std::nullopt, false, false};
    if (started_ && !WithinADay(newest_host_, arrival_host))
        Restart();
    happened_ = false;
    std::int64_t ticks = 0;
    const Place frame = _Locate(arrival_host, rtp_ts, ticks);
    bool newest = true;
    if (!started_)
        _Begin(arrival_host);
    else if (frame.x <= newest_.x)
        newest = _RanBack(frame);
    else
        _Follow(frame);
    if (newest) {
        newest_ = lastBack_ = frame;
        newest_host_ = arrival_host;
        newestRtp_ = rtp_ts;
        newestTicks_ = ticks;
        fine_ = fine_ || TicksBetween(origin_host_, arrival_host) % kTicksPerMillisecond != 0;
        if (firstBlock_ && frame.y() < _Floor(frame.x)) {  // the lowest so far
            offset_ = frame.y();
            place_ = frame.x;
        }
    }

    const double above = frame.y() - _Floor(frame.x);
    Answer answer;
    answer.fastest_host = Later(arrival_host, -above);
    answer.latest_host = Later(arrival_host, _Latest(frame, newest) - frame.y());
    answer.settled = !firstBlock_;
    if (!lost_)
        answer.uncertainty = std::chrono::microseconds(Rounded(_Uncertainty(frame.x) * 1e6 + 0.5));

    if (newest && lost_) {
        started_ = frame.x <= lostUntil_;
    } else if (newest) {
        if (above < block_.lowest) {
            block_.second = block_.lowest;
            block_.place = block_.lowestPlace;
            block_.lowest = above;
            block_.lowestPlace = frame.x;
        } else if (above < block_.second) {
            block_.second = above;
            block_.place = frame.x;
        }
        block_.sum += above;
        ++block_.frames;
        const double length = frame.x - block_.begin;
        if ((length >= kBlock && block_.frames >= kBlockFrames) ||
            (length >= kSlowBlock && block_.frames >= kSlowBlockFrames))
            _Learn(frame.x);
    }
    answer.happened = happened_;
    if (std::abs(newest_.x) > kMoveOrigin || std::abs(newest_.arrival) > kMoveOrigin)
        _MoveOrigin();
    return answer;
}

std::optional<TimePoint> FloorLine::Map(std::uint32_t rtp_ts) const {
    if (!started_ || lost_)
        return std::nullopt;
    std::int64_t ticks = 0;
    const Place frame = _Locate(newest_host_, rtp_ts, ticks);
    return Later(newest_host_, frame.x + _Floor(frame.x) - newest_.arrival);
}

void FloorLine::Restart() {
    *this = FloorLine(clockRate_Hz_);
}

std::chrono::microseconds FloorLine::Queue() const {
    return std::chrono::microseconds(Rounded(std::max(queue_, 0.0) * 1e6));
}

// ---- where a frame lies ----------------------------------------------------------------------------------

/// The nearer way round from the newest stamp. After a silence of more than half a wrap (6 h 37 min at 90
/// kHz) that says nothing: then as many wraps as fit the arrivals best.
FloorLine::Place FloorLine::_Locate(TimePoint arrival_host, std::uint32_t rtp_ts, std::int64_t& ticks) const {
    if (!started_)
        return {};
    double step = static_cast<std::int32_t>(rtp_ts - newestRtp_);
    const double elapsed = Seconds(newest_host_, arrival_host) * clockRate_Hz_;
    if (elapsed > kRtpWrap / 2)
        step += kRtpWrap * std::floor((elapsed - step) / kRtpWrap + 0.5);
    ticks = newestTicks_ + static_cast<std::int64_t>(step);
    return {static_cast<double>(ticks) / clockRate_Hz_, Seconds(origin_host_, arrival_host)};
}

/// The first frame, or the first one after the line was lost.
void FloorLine::_Begin(TimePoint arrival_host) {
    const double lostFor = lostFor_;
    const Event lastEvent = lastEvent_;
    Restart();
    lostFor_ = lostFor;
    lastEvent_ = lastEvent;
    origin_host_ = arrival_host;
    P00_ = Square(kFirstOffset);
    limit_ = lostFor_ > 0.0 ? kWildRate : kMaxRate;
    P11_ = Square(limit_ / 3.0);
    started_ = true;
}

/// Stamps count from an origin of whole seconds less after each move: exact in ticks of both clocks. What the
/// camera's clock gained, or was set by, goes with the arrivals' origin, so that y stays small, too.
void FloorLine::_MoveOrigin() {
    const std::int64_t seconds = Rounded(newest_.x);
    const std::int64_t gained = Rounded(offset_);
    const auto x = static_cast<double>(seconds);
    const auto y = static_cast<double>(gained);
    newestTicks_ -= seconds * clockRate_Hz_;
    origin_host_ = TimePoint(Ticks(static_cast<std::int64_t>(
        static_cast<std::uint64_t>(origin_host_.time_since_epoch().count()) +
        static_cast<std::uint64_t>(seconds + gained) * static_cast<std::uint64_t>(kTicksPerSecond))));
    for (double* place :
         {&place_, &newest_.x, &lastBack_.x, &block_.begin, &block_.place, &block_.lowestPlace, &backFirst_,
          &lastUsable_, &since_, &doubtFrom_, &ceilingAt_, &lostUntil_, &oddAt_})
        *place -= x;
    for (double* arrival : {&newest_.arrival, &lastBack_.arrival})
        *arrival -= x + y;
    for (double* height : {&offset_, &ceiling_})
        *height -= y;
    const std::uint32_t units = PlaceUnits(x);
    for (OffLine& block : ring_) {
        block.cadence.stamp -= units;
        block.place -= units;
    }
    for (Cadence& block : cadences_)
        block.stamp -= units;
}

// ---- the stamps' own rhythm ------------------------------------------------------------------------------

/// A stamp that is not newer: a further packet of its frame, a B frame, or a clock that was set back, which
/// takes kBack frames to tell. Whether it was: then this is the newest stamp.
bool FloorLine::_RanBack(const Place& frame) {
    if (frame.x == lastBack_.x &&
        frame.arrival - lastBack_.arrival <= 0.6 * (nominal_ > 0.0 ? nominal_ : 1.0))
        return false;
    const double height = frame.y() - _Floor(frame.x);
    if (back_++ == 0)
        backFirst_ = frame.x;
    backLow_ = back_ == 1 || frame.x <= lastBack_.x ? height : std::min(backLow_, height);
    lastBack_ = frame;
    const double jump = _BackBy();
    if (back_ < kBack || jump >= -kStep)
        return false;
    _Set(jump, frame.x);
    back_ = 0;
    return true;
}

/// By how much the frames that ran back were set: from the newest one to the first of them the stamps should
/// have gone on by what passed meanwhile. The fastest of them lay on the line, had it been set, too.
double FloorLine::_BackBy() const {
    const double step = backFirst_ - newest_.x;
    const double passed = step + backLow_;
    if (between_ > 0)
        return step - passed;
    return step - (back_ < kFew && nominal_ > 0.0 ? nominal_ : _WholeSteps(passed));
}

/// A time of some frames is one of whole frames, and what is left is the network's. Not so after a silence.
double FloorLine::_WholeSteps(double passed) const {
    if (nominal_ <= 0.0)
        return passed;
    const double steps = std::floor((passed + std::min(_Gate(), nominal_ / 4.0)) / nominal_);
    return steps <= kWholeSteps ? std::max(steps, 1.0) * nominal_ : passed;
}

/// What passed until a frame that came too late for the next one. It was one of the fastest after a pause of
/// whole steps; or it is late, and the next one after all; and after a silence only the arrivals tell.
double FloorLine::_Elapsed(double passed) const {
    const double whole = _WholeSteps(passed);
    return passed > kWholeSteps * nominal_ || passed - whole < std::max(_Gate(), nominal_ / 16.0) ? whole
                                                                                                  : nominal_;
}

void FloorLine::_Follow(const Place& frame) {
    double step = frame.x - newest_.x;
    const double elapsed = frame.arrival - newest_.arrival;
    const double height = frame.y() - _Floor(frame.x);
    const double nominal = nominal_ > 0.0 ? nominal_ : step;
    bool set = false;
    if (back_ > 0) {
        backLow_ = std::min(backLow_, height);
        const double jump = _BackBy();
        const bool moreThanB = back_ > between_;
        set = moreThanB && jump < -kStep && step - elapsed < -kStep / 2.0;
        if (set) {
            _Set(jump, frame.x);  // by so little that this frame is newer again
        } else if (moreThanB && jump < -kOdd && step - elapsed < jump / 2.0) {
            odd_ = jump;
            oddAt_ = frame.x;
            step = nominal;
        } else {
            between_ = std::max(between_, std::min(back_, kBetween));
        }
        back_ = 0;
    } else if (nominal_ > 0.0) {
        // The stamps jumped, the arrivals did not, and the frame lies off the line by what they jumped (where
        // some were lost after one that was late, it does not); or a silence ended below the line.
        const double jump = step - nominal;
        set = (std::abs(jump) > kStep && std::abs(elapsed - nominal) < 0.5 * std::abs(jump) &&
               -height * jump > 0.5 * Square(jump)) ||
              (elapsed > 2.0 * nominal && step - elapsed > kStep && height < -kStep);
        if (set)
            _Set(step - (elapsed > 2.0 * nominal ? _Elapsed(step + height) : nominal), frame.x);
    }
    if (set)
        step = nominal;
    const double steps = StepsIn(step, nominal);
    const double odd = step - steps * nominal;
    steps_ += static_cast<std::uint32_t>(steps);
    const bool isOdd = nominal_ > 0.0 && std::abs(odd) > std::max(kOdd * steps, kOddDeviations * deviation_);
    if (isOdd) {
        odd_ = odd;
        oddAt_ = frame.x;
    }
    if (!isOdd || wasOdd_) {  // one alone does not tell another cadence
        deviation_ += (std::min(std::abs(odd), kDeviationClip) - deviation_) / 64;
        nominal_ =
            nominal_ > 0.0 ? nominal_ + std::clamp(step - nominal_, -kNominalClip, kNominalClip) / 16 : step;
    }
    wasOdd_ = isOdd;
}

/// The RTP clock was set by `jump`: slope and latest latency are kept, what was gathered is not.
void FloorLine::_Set(double jump, double x) {
    offset_ -= jump;
    for (double* place : {&place_, &lastUsable_, &doubtFrom_, &since_, &lostUntil_})
        *place += jump;
    P00_ += Square(kSetOffset);
    _BeginBlock(x);
    _ForgetOffLine();
    cadences_.Clear();
    steps_ = 0;
    hasCeiling_ = false;
    _Happened(Event::Kind::kSet, jump);
}

// ---- the answer ------------------------------------------------------------------------------------------

double FloorLine::_Uncertainty(double x) const {
    const double dt = x - place_;
    const double variance =
        P00_ + 2.0 * dt * P01_ + dt * dt * P11_ + Square(kWalk) * std::abs(dt) * dt * dt / 3.0;
    const double noise = kDeviationShare * std::max(0.0, deviation_ - kTickNoise);
    const double doubt = x - doubtFrom_ < kHold ? doubt_ : 0.0;
    return 2.0 * std::sqrt(std::max(variance, 0.0)) + 2.0 * scatter_ + noise + (fine_ ? 0.0 : kWholeMsDoubt) +
           doubt;
}

/// Above the lowest y so far no frame has set out, whatever the network did; the minimum leaks by what the
/// camera's clock may gain. A stamp that is not the newest proves nothing beyond its own arrival, nor does a
/// clock that no crystal keeps.
double FloorLine::_Latest(const Place& frame, bool newest) {
    if (!newest || lost_)
        return frame.y();
    ceiling_ =
        hasCeiling_ ? std::min(ceiling_ + limit_ * std::abs(frame.x - ceilingAt_), frame.y()) : frame.y();
    ceilingAt_ = frame.x;
    hasCeiling_ = true;
    return ceiling_;
}

// ---- learning: once a block ------------------------------------------------------------------------------

double FloorLine::_LeastScatter() const {
    return fine_ ? kLeastScatter : kLeastScatterWholeMs;
}

/// So far from the line a low still belongs to it.
double FloorLine::_Gate() const {
    return kGate * std::sqrt(P00_ + Square(scatter_));
}

/// The gate widens while nothing is learned. A longer route would walk through it in the end, unless what has
/// not come nearer than by half is still off. And what lies a little below the line in the beginning tells
/// its slope, which nobody knows yet.
bool FloorLine::_LiesOff(double low) {
    const double gate = _Gate();
    const bool once = ring_.Size() == 0 && low < -(gate + kUnknownSlope * limit_);
    if (low < 0.0 && !once && place_ - since_ < kSettling)
        return false;
    if (std::abs(low) > gate)
        return true;
    if (ring_.Size() == 0 || low <= leftGate_)
        return false;
    double nearest = 1e9;
    for (const OffLine& block : ring_)
        nearest = std::min(nearest, static_cast<double>(block.height) - lowered_);
    return low > nearest / 2;
}

void FloorLine::_BeginBlock(double x) {
    block_ = {};
    block_.begin = block_.place = block_.lowestPlace = x;
}

/// The line and its covariance at another place.
void FloorLine::_Predict(double x) {
    const double dt = x - place_;
    const double time = std::abs(dt);
    offset_ += slope_ * dt;
    place_ = x;
    P00_ += 2.0 * dt * P01_ + dt * dt * P11_ + Square(kWalk) * time * time * time / 3.0;
    P01_ += dt * P11_ + Square(kWalk) * time * time / 2.0;
    P11_ += Square(kWalk) * time;
    P00_ = std::max(P00_, 0.0);  // rounding after a silence of hours
}

void FloorLine::_Learn(double x) {
    const double low = block_.second;  // the second lowest: one wrong stamp a block cannot pull
    const double mean = block_.sum / block_.frames - low;
    const double place = block_.place;
    _Predict(place);
    queue_ = low;
    _BeginBlock(x);
    if (firstBlock_) {
        firstBlock_ = false;
        scatter_ = std::max(_LeastScatter(), mean / 4.0);
        P00_ = Square(std::max(mean, kLeastScatter));
        P01_ = 0.0;
        cadences_.Push({PlaceUnits(newest_.x), steps_});
    } else if (_LiesOff(low)) {
        _LearnOffLine(low, place);
    } else {
        _LearnOnLine(low, place);
    }
}

void FloorLine::_LearnOffLine(double low, double place) {
    if (ring_.Size() == 0) {
        leftGate_ = _Gate();
        leftNearby_ = std::abs(low) < 2.0 * leftGate_;
    }
    ring_.Push({{PlaceUnits(newest_.x), steps_}, PlaceUnits(place), static_cast<float>(low + lowered_)});
    if (low < 0.0 && _WasSetBy(low)) {
        _SetLate(low, place);
        return;
    }
    if (low < 0.0) {  // proof that the line is too high: it follows, its slope does not
        _Doubt(_Gate() - low, place);
        offset_ += low;
        lowered_ += low;
        P00_ += Square(scatter_);
        lastUsable_ = place;
        _Happened(Event::Kind::kLower, low);
    }
    if (ring_.Size() >= kWitnessed)  // above: a queue, until proved otherwise
        _Judge(place);
    if (!lost_ && place - lastUsable_ > kHold) {
        offset_ += low;
        P00_ = Square(kAnewOffset);
        P01_ = 0.0;
        P11_ = Square(limit_ / 3.0);
        lastUsable_ = place;
        _ForgetOffLine();
        _Doubt(low, place);
        _Happened(Event::Kind::kAnew, low);
    }
}

void FloorLine::_LearnOnLine(double low, double place) {
    if (told_ != 0.0)
        _Happened(Event::Kind::kReturned, -told_);
    _ForgetOffLine();
    if (place > oddAt_)
        odd_ = 0.0;  // it was the frames' own
    if (place - since_ > kSettling && std::abs(slope_) < kMaxRate)
        limit_ = kMaxRate;
    settledFor_ += std::min(place - lastUsable_, 10.0);
    lastUsable_ = place;
    cadences_.Push({PlaceUnits(newest_.x), steps_});
    const double innovation = P00_ + Square(scatter_) * (low < 0.0 ? 1.0 : kUpVariance);
    const double K0 = P00_ / innovation;
    const double K1 = P01_ / innovation;
    offset_ += K0 * low;
    slope_ = std::clamp(slope_ + K1 * low, -limit_, limit_);
    atLimit_ = std::abs(slope_) >= limit_ ? atLimit_ + 1 : 0;
    if (atLimit_ >= kAtLimit) {
        _Lose(place);
        return;
    }
    P11_ = std::max(P11_ - K1 * P01_, 0.0);
    P01_ *= 1.0 - K0;
    P00_ *= 1.0 - K0;
    // By differences, so that a slow rise is not taken for noise; 0.9 of their mean size is a standard
    // deviation.
    scatter_ += (0.9 * std::min(std::abs(low - lastLow_), 4.0 * scatter_) - scatter_) / 32.0;
    scatter_ = std::max(scatter_, _LeastScatter());
    lastLow_ = low;
}

/// A straight line through the blocks off ours.
FloorLine::Fit FloorLine::_FitOffLine(double place) {
    const auto count = static_cast<double>(ring_.Size());
    const std::uint32_t first = ring_.Oldest().place;
    double meanPlace = 0.0;
    double meanHeight = 0.0;
    for (const OffLine& block : ring_) {
        meanPlace += Seconds(first, block.place) / count;
        meanHeight += static_cast<double>(block.height) / count;
    }
    double sxx = 0.0;
    double sxy = 0.0;
    for (const OffLine& block : ring_) {
        const double dx = Seconds(first, block.place) - meanPlace;
        sxx += dx * dx;
        sxy += dx * block.height;
    }
    Fit fit;
    fit.spread = std::sqrt(std::max(sxx, 1.0));  // blocks are a second apart: never below for two of them
    fit.rate = sxy / Square(fit.spread);
    double squares = 0.0;
    for (const OffLine& block : ring_)
        squares += Square(block.height - meanHeight - fit.rate * (Seconds(first, block.place) - meanPlace));
    fit.residual = std::sqrt(squares / (count - 2.0));
    fit.height = meanHeight + fit.rate * (Seconds(first, PlaceUnits(place)) - meanPlace) - lowered_;
    return fit;
}

/// Some blocks in a row lay off the line. A queue is messy; a line of their own says that the camera's clock
/// or the route changed, and its slope which of them. A camera that slews its clock shows it in the stamps of
/// its frames, too: then a few blocks do; without such a witness it takes kRing.
void FloorLine::_Judge(double place) {
    const Fit fit = _FitOffLine(place);
    if (fit.residual > 4.0 * scatter_) {
        tooFast_ = 0;
        parallel_ = 0;
        return;
    }
    const double size = std::abs(fit.rate);
    const bool sure = size * fit.spread > kSureOfRate * std::max(fit.residual, scatter_);
    const bool slewed = sure && size >= kParallel && std::abs(fit.rate + _CadenceChange()) < 0.3 * size;
    if (size < kParallel && _WasSetBy(fit.height)) {
        _SetLate(fit.height, place);
        return;
    }
    if (!ring_.IsFull()) {
        if (slewed)
            _ChangeRate(fit, 0.2 * size, place);  // the stamps say so: no doubt
        return;
    }
    tooFast_ = std::abs(slope_ + fit.rate) > limit_ ? tooFast_ + 1 : 0;
    if (tooFast_ >= (settledFor_ < kSettling ? 1 : kTooFast)) {
        _Lose(place);
        return;
    }
    // It left the line without a jump, and by a few millionths: the crystal's temperature.
    const bool warm = leftNearby_ && fit.residual < 2.0 * scatter_ && size < kWarm &&
                      size * fit.spread > kSureOfWarm * fit.residual;
    if (warm) {
        _Doubt(std::abs(fit.height), place);
        _ChangeRate(fit, size, place);
        return;
    }
    if (size < kParallel) {
        if (++parallel_ == kRing && fit.height > 0.0) {
            told_ = fit.height;
            _Happened(Event::Kind::kLonger, fit.height);
        }
        return;
    }
    parallel_ = 0;
    // Of two clean lines the one with the likelier crystal.
    const bool likelier = std::abs(slope_ + fit.rate) < 0.5 * std::abs(slope_) && size > kClock;
    if (!slewed && !(likelier && sure))
        return;
    if (!slewed)
        _Doubt(std::abs(fit.height), place);
    _ChangeRate(fit, 0.2 * size, place);
}

/// Whether the stamps took a step, since blocks lay on the line, that was no multiple of their usual one and
/// that explains blocks of this height; up to a lost frame or two.
bool FloorLine::_WasSetBy(double height) const {
    if (odd_ == 0.0)
        return false;
    const double lost = std::floor((height + odd_) / nominal_ + 0.5);
    return std::abs(lost) <= 2.0 && std::abs(height + odd_ - lost * nominal_) < kGate * scatter_;
}

/// The RTP clock was set by little, some blocks ago.
void FloorLine::_SetLate(double height, double place) {
    offset_ += height;
    P00_ += Square(scatter_);
    lastUsable_ = place;
    hasCeiling_ = false;
    _ForgetOffLine();
    odd_ = 0.0;
    _Happened(Event::Kind::kSet, -height);
}

/// The blocks off the line are the line from here on; `doubt`: standard deviation of its new slope.
void FloorLine::_ChangeRate(const Fit& fit, double doubt, double place) {
    offset_ += fit.height;
    slope_ = std::clamp(slope_ + fit.rate, -limit_, limit_);
    // Over a line that is off in its slope the low of a block is rather the frame at its end than the
    // fastest.
    P00_ += Square(fit.residual) + Square(fit.rate * kBlock / 4.0);
    P11_ += Square(doubt);
    lastUsable_ = place;
    _ForgetOffLine();
    cadences_.Clear();
    _Happened(Event::Kind::kRate, fit.height);
}

/// By how much a frame's step of the stamps differs from the usual one since the line was left. Not known
/// before a stretch of 20 blocks: then 0, which no rate is near.
double FloorLine::_CadenceChange() const {
    if (cadences_.Size() <= 20)
        return 0.0;
    const auto perStep = [](const Cadence& from, const Cadence& to) {
        return Seconds(from.stamp, to.stamp) / std::max(1u, to.steps - from.steps);
    };
    const double usual = perStep(cadences_.Oldest(), cadences_.Newest());
    return usual > 0.0 ? perStep(ring_.Oldest().cadence, ring_.Newest().cadence) / usual - 1.0 : 0.0;
}

void FloorLine::_ForgetOffLine() {
    ring_.Clear();
    lowered_ = 0.0;
    told_ = 0.0;
    parallel_ = 0;
}

/// No answer of our own for a while, then anew. A camera that is lost again at once is tried less and less
/// often.
void FloorLine::_Lose(double x) {
    lostFor_ =
        lostFor_ > 0.0 && x - since_ < kLostAgain ? std::clamp(2.0 * lostFor_, kLost, kHold) : kLostFirst;
    lostUntil_ = x + lostFor_;
    lost_ = true;
    _ForgetOffLine();
    _Happened(Event::Kind::kLost, 0.0);
}

/// The line moved on the network's word alone: the uncertainty says so until kHold has passed.
void FloorLine::_Doubt(double size, double x) {
    if (x - since_ < kSettling)
        return;
    doubt_ = x - doubtFrom_ >= kHold ? size : doubt_ + size;
    doubtFrom_ = x;
}

void FloorLine::_Happened(Event::Kind kind, double size_s) {
    lastEvent_ = {kind, std::chrono::microseconds(Rounded(size_s * 1e6))};
    happened_ = true;
}

}  // namespace camclock::receiver
