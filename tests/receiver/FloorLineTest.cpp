#include "receiver/FloorLine.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace camclock::receiver {
namespace {

using Kind = FloorLine::Event::Kind;
using std::chrono::microseconds;
using std::chrono::milliseconds;

// A stream has 3 KiB for everything; and one that can be copied by its bytes owns no memory.
static_assert(sizeof(FloorLine) <= 1'200);
static_assert(std::is_trivially_copyable_v<FloorLine>);

constexpr std::uint32_t kRate_Hz = 90'000;
constexpr std::int64_t kStart = 17'000'000'000'000'000;  // some day in 2023

TimePoint At(double seconds) {
    return TimePoint(Ticks(kStart + std::llround(seconds * 1e7)));
}
double SecondsOf(TimePoint time) {
    return static_cast<double>(time.time_since_epoch().count() - kStart) * 1e-7;
}
double SecondsOf(microseconds time) {
    return static_cast<double>(time.count()) * 1e-6;
}

// ---- cameras and networks whose truth is known -----------------------------------------------------------

/// Uniform and exponential numbers that are the same with every standard library.
class Dice {
public:
    explicit Dice(std::uint32_t seed)
        : engine_(seed) {}
    double Uniform() { return (Bits() + 0.5) / 4294967296.0; }
    double Exponential(double mean) { return -mean * std::log(Uniform()); }
    bool Falls(double probability) { return Uniform() < probability; }
    std::uint32_t Bits() { return static_cast<std::uint32_t>(engine_()); }

private:
    std::mt19937 engine_;
};

/// One-way delay: at least `least`, exponential above it, and now and then much more. In seconds.
struct Network {
    double least = 0.3e-3;
    double jitter = 0.2e-3;
    double spikes = 0.005;
    double spike = 5e-3;
};
constexpr Network kLan{};
constexpr Network kBusy{0.5e-3, 2e-3, 0.01, 20e-3};
constexpr Network kWiFi{2e-3, 5e-3, 0.03, 40e-3};
constexpr Network kWan{30e-3, 8e-3, 0.02, 60e-3};

struct Scene {
    Network network = kLan;
    double seconds = 600.0;
    double fps = 25.0;
    double skew = 20e-6;    // camera's clock against the host's
    double camera = 28e-3;  // s from capture to the first packet
    double lost = 0.0;      // share of the frames
    bool wholeMilliseconds = false;
    std::function<double(double)> stampShift;                 // s, added to the stamps at a time of capture
    std::function<double(double, Dice&)> delay;               // s, added to the way
    std::function<bool(double)> silent;                       // no frames then
    std::uint32_t firstStamp = 0xFFFFFFFFu - 100 * kRate_Hz;  // wraps after 100 s
};

struct Shot {
    double captured = 0.0;  // s, the truth
    double arrived = 0.0;
    std::uint32_t rtp_ts = 0;
};

std::vector<Shot> Film(const Scene& scene, std::uint32_t seed) {
    Dice dice(seed);
    std::vector<Shot> shots;
    double last = 0.0;
    double frequency = 0.0;  // s per s: what the crystal's temperature adds
    double phase = 0.0;
    const auto count = static_cast<int>(scene.seconds * scene.fps);
    for (int i = 0; i < count; ++i) {
        const double t = i / scene.fps / (1.0 + scene.skew);
        frequency += 1e-8 * std::sqrt(1.0 / scene.fps) * (dice.Uniform() - 0.5) * std::sqrt(12.0);
        phase += frequency / scene.fps;
        const double stamp = t * (1.0 + scene.skew) + phase + (scene.stampShift ? scene.stampShift(t) : 0.0);
        const Network& network = scene.network;
        double way =
            scene.camera + dice.Exponential(50e-6) + network.least + dice.Exponential(network.jitter);
        way += dice.Falls(network.spikes) ? dice.Exponential(network.spike) : 0.0;
        way += scene.delay ? scene.delay(t, dice) : 0.0;
        last = std::max(last, t + way);
        if (dice.Falls(scene.lost) || (scene.silent && scene.silent(t)))
            continue;
        const auto ticks = static_cast<std::int64_t>(std::llround(stamp * kRate_Hz));
        shots.push_back({t, scene.wholeMilliseconds ? std::floor(last * 1e3) * 1e-3 : last,
                         scene.firstStamp + static_cast<std::uint32_t>(ticks)});
    }
    return shots;
}

/// What the line answered to a film, less the constant that nobody can know from packets.
struct Outcome {
    struct Row {
        double captured = 0.0;
        double error = 0.0;        // s
        double uncertainty = 0.0;  // s; infinite while lost
        double latest = 0.0;       // s: `latest_host` after the capture
        FloorLine::Event event;    // of this frame, if any
    };
    std::vector<Row> rows;

    std::vector<FloorLine::Event> Events(Kind kind) const {
        std::vector<FloorLine::Event> events;
        for (const Row& row : rows) {
            if (row.event.kind == kind)
                events.push_back(row.event);
        }
        return events;
    }
    /// The `share`-th part of the errors' sizes from `begin` to `end`, in milliseconds.
    double Error_ms(double share, double begin = 30.0, double end = 1e9) const {
        std::vector<double> sizes;
        for (const Row& row : rows) {
            if (row.captured >= begin && row.captured < end)
                sizes.push_back(std::abs(row.error) * 1e3);
        }
        std::sort(sizes.begin(), sizes.end());
        return sizes.at(static_cast<std::size_t>(share * static_cast<double>(sizes.size() - 1)));
    }
    double Coverage(double begin = 30.0) const {
        double all = 0.0;
        double inside = 0.0;
        for (const Row& row : rows) {
            all += row.captured >= begin ? 1.0 : 0.0;
            inside += row.captured >= begin && std::abs(row.error) <= row.uncertainty ? 1.0 : 0.0;
        }
        return 100.0 * inside / all;
    }
};

/// `calibrated`: until when nothing happens; the constant is the median error from 30 s until then.
Outcome Judge(const std::vector<Shot>& shots, double calibrated = 90.0,
              FloorLine line = FloorLine(kRate_Hz)) {
    Outcome outcome;
    std::vector<double> usual;
    for (const Shot& shot : shots) {
        const FloorLine::Answer answer = line.Feed(At(shot.arrived), shot.rtp_ts);
        Outcome::Row row{shot.captured,
                         SecondsOf(answer.fastest_host) - shot.captured,
                         std::numeric_limits<double>::infinity(),
                         SecondsOf(answer.latest_host) - shot.captured,
                         {}};
        if (answer.uncertainty)
            row.uncertainty = SecondsOf(*answer.uncertainty);
        if (answer.happened)
            row.event = line.LastEvent();
        if (shot.captured >= 30.0 && shot.captured < calibrated)
            usual.push_back(row.error);
        outcome.rows.push_back(row);
    }
    std::sort(usual.begin(), usual.end());
    for (Outcome::Row& row : outcome.rows)
        row.error -= usual.at(usual.size() / 2);
    return outcome;
}

Outcome Judge(const Scene& scene, std::uint32_t seed, double calibrated = 90.0) {
    return Judge(Film(scene, seed), calibrated);
}

/// A film without any noise: 25 frames a second, a way of 30 ms. It counts in whole ticks, for years.
class Exact {
public:
    static constexpr double kWay = 30e-3;

    explicit Exact(std::uint32_t rate_Hz = kRate_Hz)
        : line(rate_Hz)
        , rate_Hz_(rate_Hz) {}

    /// The next frame, after `step` seconds of stamps and `elapsed` of the host's. Every third one is 12.3 us
    /// late: the clock is not one of whole milliseconds.
    FloorLine::Answer Step(double step, double elapsed, double late = 0.0) {
        stamp_ += std::llround(step * 1e7);
        captured_ += std::llround(elapsed * 1e7);
        return line.Feed(Arrival() + Late(late + (++frames_ % 3 == 0 ? 12.3e-6 : 0.0)), Stamp());
    }
    /// Frames for so long.
    FloorLine::Answer Run(double seconds, double late = 0.0) {
        FloorLine::Answer answer;
        for (std::int64_t i = std::llround(seconds * 25.0); i > 0; --i)
            answer = Step(0.04, 0.04, late);
        return answer;
    }
    std::uint32_t Stamp() const {
        const std::int64_t seconds = stamp_ / 10'000'000;
        const std::int64_t rest = stamp_ % 10'000'000;
        return static_cast<std::uint32_t>(
            seconds * rate_Hz_ + (rest * rate_Hz_ + (rest < 0 ? -5'000'000 : 5'000'000)) / 10'000'000);
    }
    /// How far an answer for the newest frame is off, in seconds.
    double Error(const FloorLine::Answer& answer) const {
        return static_cast<double>((answer.fastest_host - Arrival()).count()) * 1e-7;
    }

    FloorLine line;

private:
    static Ticks Late(double seconds) { return Ticks(std::llround(seconds * 1e7)); }
    TimePoint Arrival() const { return At(kWay) + Ticks(captured_); }

    std::uint32_t rate_Hz_;
    std::int64_t stamp_ = 0;     // in ticks of 100 ns
    std::int64_t captured_ = 0;  // likewise
    std::int64_t frames_ = 0;
};

// ---- what is reached on networks -------------------------------------------------------------------------

struct NetworkCase {
    std::string name;
    Scene scene;
    double calibrated;  // s
    double p50_ms, p95_ms, p99_ms;
    double coverage;  // %
};

class FloorLineOnNetworks : public ::testing::TestWithParam<NetworkCase> {};

TEST_P(FloorLineOnNetworks, StaysWithinItsFigures) {
    for (std::uint32_t seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const Outcome outcome = Judge(GetParam().scene, seed, GetParam().calibrated);
        EXPECT_LE(outcome.Error_ms(0.50), GetParam().p50_ms);
        EXPECT_LE(outcome.Error_ms(0.95), GetParam().p95_ms);
        EXPECT_LE(outcome.Error_ms(0.99), GetParam().p99_ms);
        EXPECT_GE(outcome.Coverage(), GetParam().coverage);
    }
}

Scene On(Network network, const std::function<void(Scene&)>& change = {}) {
    Scene scene;
    scene.network = network;
    if (change)
        change(scene);
    return scene;
}

/// A queue of up to `most` seconds between two times, which breathes and hardly ever empties.
std::function<double(double, Dice&)> Queueing(double from, double to, double most) {
    return [=](double t, Dice& dice) {
        const double rise = std::clamp(std::min(t - from, to - t) / 60.0, 0.0, 1.0);
        const double breath = 0.5 + 0.3 * std::sin(t * 0.7) + 0.2 * dice.Uniform() * dice.Uniform();
        return most * rise * breath;
    };
}

/// Nothing for up to 0.9 s, then all at once: a lost TCP segment, every 15 s or so.
std::function<double(double, Dice&)> Stalls() {
    return [until = 8.0](double t, Dice& dice) mutable {
        if (t > until + 1.0)
            until = t + 0.2 + dice.Exponential(15.0);
        const double begin = until - 0.6;
        return t > begin && t < until ? until - t : 0.0;
    };
}

std::function<void(Scene&)> LongerRoute(double from, double to, double by) {
    return
        [=](Scene& scene) { scene.delay = [=](double t, Dice&) { return t > from && t < to ? by : 0.0; }; };
}

std::function<void(Scene&)> ClockSet(double at, double by) {
    return [=](Scene& scene) { scene.stampShift = [=](double t) { return t >= at ? by : 0.0; }; };
}

INSTANTIATE_TEST_SUITE_P(
    All, FloorLineOnNetworks,
    ::testing::Values(
        NetworkCase{"Lan", On(kLan), 90, 0.029, 0.043, 0.048, 99},
        NetworkCase{"BusyLan", On(kBusy), 90, 0.057, 0.080, 0.098, 99},
        NetworkCase{"WiFi", On(kWiFi), 90, 0.108, 0.183, 0.193, 99},
        NetworkCase{"Wan", On(kWan), 90, 0.154, 0.243, 0.288, 99},
        NetworkCase{"Lan500Ppm", On(kLan, [](Scene& s) { s.skew = 500e-6; }), 90, 0.029, 0.043, 0.048, 99},
        NetworkCase{"LanMinus500Ppm", On(kLan, [](Scene& s) { s.skew = -500e-6; }), 90, 0.029, 0.043, 0.048,
                    99},
        NetworkCase{"WanAt60", On(kWan, [](Scene& s) { s.fps = 60.0; }), 90, 0.100, 0.135, 0.198, 99},
        NetworkCase{"LanAt5", On(kLan, [](Scene& s) { s.fps = 5.0; }), 90, 0.055, 0.070, 0.074, 99},
        NetworkCase{"WanAt5", On(kWan, [](Scene& s) { s.fps = 5.0; }), 90, 0.52, 0.61, 0.71, 99},
        NetworkCase{"LanOneInTwentyLost", On(kLan, [](Scene& s) { s.lost = 0.05; }), 90, 0.028, 0.039, 0.044,
                    99},
        NetworkCase{"LanWithStalls", On(kLan, [](Scene& s) { s.delay = Stalls(); }), 90, 0.029, 0.044, 0.049,
                    99},
        NetworkCase{"WholeMilliseconds", On(kLan, [](Scene& s) { s.wholeMilliseconds = true; }), 90, 0.150,
                    0.236, 0.376, 99},
        NetworkCase{"LongerRouteForAWhile", On(kWan, LongerRoute(200, 400, 15e-3)), 200, 0.125, 0.539, 0.579,
                    99},
        NetworkCase{"QueueOf120ms", On(kLan, [](Scene& s) { s.delay = Queueing(150, 560, 120e-3); }), 150,
                    0.068, 0.196, 0.209, 98.8},
        NetworkCase{"WallClockSetForward", On(kWan, ClockSet(300, 1.0)), 300, 0.091, 0.240, 0.370, 99},
        NetworkCase{"WallClockSetBack", On(kWan, ClockSet(300, -1.0)), 300, 0.098, 0.240, 0.380, 98.9}),
    test::CaseName());

// ---- the answer ------------------------------------------------------------------------------------------

TEST(FloorLine, FirstFrameIsAnsweredWithItsArrivalAndATenthOfASecondOfDoubt) {
    FloorLine line(kRate_Hz);
    const FloorLine::Answer answer = line.Feed(At(0.0), 123);
    EXPECT_EQ(answer.fastest_host, At(0.0));
    EXPECT_EQ(answer.latest_host, At(0.0));
    ASSERT_TRUE(answer.uncertainty);
    EXPECT_GE(*answer.uncertainty, milliseconds(100));
    EXPECT_LE(*answer.uncertainty, milliseconds(101));
    EXPECT_FALSE(answer.settled);
    EXPECT_FALSE(answer.happened);
}

TEST(FloorLine, IsSettledWhenItsFirstBlockWasFull) {
    Exact film;
    EXPECT_FALSE(film.Run(1.0).settled);
    EXPECT_TRUE(film.Run(0.2).settled);
}

TEST(FloorLine, BlocksOfASlowCameraAreLonger) {
    Exact slow;  // 2 frames a second: 5 s
    for (int i = 0; i <= 10; ++i)
        EXPECT_FALSE(slow.Step(0.5, 0.5).settled);
    EXPECT_TRUE(slow.Step(0.5, 0.5).settled);
    Exact slower;  // a frame in 2 s: 8 frames
    for (int i = 0; i < 8; ++i)
        EXPECT_FALSE(slower.Step(2.0, 2.0).settled);
    EXPECT_TRUE(slower.Step(2.0, 2.0).settled);
}

TEST(FloorLine, TheFirstBlockTakesTheLowestSoFar) {
    Exact film;
    EXPECT_NEAR(film.Error(film.Step(0.0, 0.0, 50e-3)), 50e-3, 1e-6);
    EXPECT_NEAR(film.Error(film.Step(0.04, 0.04, 20e-3)), 20e-3, 1e-6);
    EXPECT_NEAR(film.Error(film.Step(0.04, 0.04, 60e-3)), 20e-3, 1e-6);
}

TEST(FloorLine, TellsTheSkewOfTheCamera) {
    for (const double ppm : {-500.0, -20.0, 0.0, 100.0, 500.0}) {
        SCOPED_TRACE(ppm);
        FloorLine line(kRate_Hz);
        for (const Shot& shot : Film(On(kLan, [&](Scene& s) { s.skew = ppm * 1e-6; }), 1))
            line.Feed(At(shot.arrived), shot.rtp_ts);
        EXPECT_NEAR(line.SkewPpm(), ppm, 0.5);
    }
}

TEST(FloorLine, TellsWhatWaitsInTheNetwork) {
    Exact film;
    film.Run(10.0);
    EXPECT_LE(film.line.Queue(), microseconds(20));
    film.Run(3.0, 50e-3);
    EXPECT_NEAR(SecondsOf(film.line.Queue()), 50e-3, 1e-4);
    film.Run(3.0, -5e-3);
    EXPECT_EQ(film.line.Queue(), microseconds(0));
}

TEST(FloorLine, MapsAStampWithoutLearningFromIt) {
    FloorLine line(kRate_Hz);
    EXPECT_FALSE(line.Map(5));
    for (const Shot& shot : Film(On(kWiFi), 2)) {
        const FloorLine::Answer answer = line.Feed(At(shot.arrived), shot.rtp_ts);
        if (shot.captured < 30.0)
            continue;  // the first blocks move the line by more
        const auto mapped = line.Map(shot.rtp_ts);
        ASSERT_TRUE(mapped);
        ASSERT_NEAR(SecondsOf(*mapped), SecondsOf(answer.fastest_host), 0.5e-3);
        const auto next = line.Map(shot.rtp_ts + 3'600);
        ASSERT_NEAR(SecondsOf(*next) - SecondsOf(*mapped), 0.04, 1e-4);
        const auto before = line.Map(shot.rtp_ts - 90'000);
        ASSERT_NEAR(SecondsOf(*mapped) - SecondsOf(*before), 1.0, 1e-3);
    }
}

TEST(FloorLine, StartsAnewWhenTold) {
    Exact film;
    film.Run(60.0);
    film.line.Restart();
    EXPECT_FALSE(film.line.Map(film.Stamp()));
    const FloorLine::Answer answer = film.Step(-7'000.0, 0.04, 5e-3);
    EXPECT_NEAR(film.Error(answer), 5e-3, 1e-6);
    EXPECT_FALSE(answer.settled);
    EXPECT_FALSE(answer.happened);
}

TEST(FloorLine, WithoutAClockRateAnswersTheArrival) {
    FloorLine line(0);
    for (int i = 0; i < 100; ++i) {
        const FloorLine::Answer answer = line.Feed(At(i), static_cast<std::uint32_t>(i) * 77'777u);
        EXPECT_EQ(answer.fastest_host, At(i));
        EXPECT_EQ(answer.latest_host, At(i));
        EXPECT_FALSE(answer.uncertainty);
        EXPECT_FALSE(answer.settled);
    }
    EXPECT_FALSE(line.Map(0));
    EXPECT_EQ(line.SkewPpm(), 0.0);
    EXPECT_EQ(line.Queue(), microseconds(0));
}

TEST(FloorLine, NoFrameSetsOutAfterItsLatest) {
    const auto slewed = [](Scene& s) {
        s.stampShift = [](double t) { return 500e-6 * std::clamp(t - 300.0, 0.0, 100.0); };
    };
    const Scene scenes[] = {On(kLan),
                            On(kWan),
                            On(kLan, [](Scene& s) { s.skew = 500e-6; }),
                            On(kWan, ClockSet(300, 1.0)),
                            On(kWan, ClockSet(300, -1.0)),
                            On(kLan, ClockSet(300, -0.2)),
                            On(kLan, slewed),
                            On(kLan, [](Scene& s) { s.delay = Queueing(150, 560, 120e-3); })};
    for (const Scene& scene : scenes) {
        SCOPED_TRACE(&scene - scenes);
        const Outcome outcome = Judge(scene, 4);
        for (const Outcome::Row& row : outcome.rows)
            ASSERT_GE(row.latest, scene.camera) << "captured at " << row.captured << " s";
        // And it is of use: within a network's jitter of the fastest frame's arrival.
        EXPECT_LE(outcome.rows.back().latest, scene.camera + scene.network.least + 5e-3);
    }
}

// ---- each rule -------------------------------------------------------------------------------------------

TEST(FloorLine, OneWrongStampABlockDoesNotPull) {
    Exact film;
    film.Run(30.0);
    for (int second = 0; second < 60; ++second) {
        film.Step(0.04, 0.04, -30e-3);  // as if it had arrived before the fastest
        EXPECT_LE(std::abs(film.Error(film.Run(1.04))), 20e-6);
    }
}

TEST(FloorLine, FurtherPacketsOfAFrameAreAnsweredAndNotLearned) {
    Exact film;
    Exact alone;
    for (int i = 0; i < 2'000; ++i) {
        const FloorLine::Answer first = film.Step(0.04, 0.04);
        const FloorLine::Answer other = alone.Step(0.04, 0.04);
        EXPECT_EQ(first.fastest_host, other.fastest_host);
        for (int packet = 1; packet < 40; ++packet) {
            const FloorLine::Answer answer = film.Step(0.0, 0.0, packet * 120e-6);
            EXPECT_LE(std::abs(SecondsOf(answer.fastest_host) - SecondsOf(first.fastest_host)), 1e-3);
        }
    }
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kNone);
}

TEST(FloorLine, BFramesAreAnsweredAndNotTakenForAClockSetBack) {
    for (int between = 1; between <= 4; ++between) {
        SCOPED_TRACE(between);
        const std::vector<Shot> shots = Film(On(kLan), 7);
        std::vector<Shot> sent;  // I0 P3 B1 B2 P6 B4 B5: each in the place where it is decoded
        const auto run = static_cast<std::size_t>(between) + 1;
        for (std::size_t i = 0; i + run < shots.size(); i += run) {
            for (std::size_t j = 0; j < run; ++j) {
                Shot shot = shots[i + (j == 0 ? run : j) - 1];
                shot.arrived = shots[i + j].arrived + between / 25.0;
                sent.push_back(shot);
            }
        }
        const Outcome outcome = Judge(sent);
        EXPECT_LE(outcome.Error_ms(0.99), 0.069);
        EXPECT_GE(outcome.Coverage(), 99.0);
        EXPECT_TRUE(outcome.Events(Kind::kSet).empty());
    }
}

TEST(FloorLine, StampsSetForwardAreSeenAtOnce) {
    for (const double jump : {0.15, 1.0, 3'600.0}) {
        SCOPED_TRACE(jump);
        Exact film;
        film.Run(60.0);
        const FloorLine::Answer answer = film.Step(0.04 + jump, 0.04);
        EXPECT_TRUE(answer.happened);
        EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
        EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), jump, 1e-3);
        EXPECT_FALSE(film.line.LastEvent().IsRouteChange());
        EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3);
        EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
    }
}

TEST(FloorLine, StampsSetBackAreSeenAfterEightFrames) {
    for (const double jump : {-1.0, -3'600.0}) {
        SCOPED_TRACE(jump);
        Exact film;
        film.Run(60.0);
        FloorLine::Answer answer = film.Step(0.04 + jump, 0.04);
        for (int i = 1; i < 8; ++i) {
            EXPECT_FALSE(answer.happened);
            answer = film.Step(0.04, 0.04);
        }
        EXPECT_TRUE(answer.happened);
        EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
        EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), jump, 1e-3);
        EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3);
        EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
    }
}

TEST(FloorLine, StampsSetBackByAFewFramesAreSeenWhenTheyAreNewAgain) {
    Exact film;
    film.Run(60.0);
    film.Step(0.04 - 0.2, 0.04);
    film.Run(0.2);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), -0.2, 1e-3);
    EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
}

TEST(FloorLine, StampsSetWhileFramesAreLostAreSetByWholeFrames) {
    for (const double jump : {-1.0, -0.2, 1.0}) {
        for (std::uint32_t seed = 1; seed <= 10; ++seed) {
            SCOPED_TRACE(std::to_string(jump) + ", seed " + std::to_string(seed));
            Scene scene = On(kLan, ClockSet(300, jump));
            scene.lost = 0.2;
            const Outcome outcome = Judge(scene, seed, 300.0);
            const auto set = outcome.Events(Kind::kSet);
            ASSERT_EQ(set.size(), 1u);
            EXPECT_NEAR(SecondsOf(set.front().size), jump, 1e-3);
            EXPECT_LE(outcome.Error_ms(0.99, 301.0), 0.05);
        }
    }
}

TEST(FloorLine, FramesThatAreLateHideNoStepOfTheStamps) {
    Exact film;
    film.Run(60.0);
    film.Step(0.04, 0.04, 150e-3);  // the last one before it
    film.Step(0.04 - 0.2, 0.04);
    film.Run(0.4);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), -0.2, 1e-3);
    film.Run(60.0);
    film.Step(0.04 - 0.05, 0.04, 150e-3);  // the first one after it
    film.Run(10.0);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), -0.05, 1e-3);
    EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
    EXPECT_LE(film.Run(0.04).uncertainty.value(), milliseconds(1));
}

TEST(FloorLine, FramesThatAreLostAfterOneThatWasLateAreNoStep) {
    Exact film;
    film.Run(60.0);
    film.Step(0.04, 0.04, 100e-3);
    film.Step(0.2, 0.2);  // four are lost: the stamps go on by 200 ms, the arrivals by half of it
    EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kNone);
}

TEST(FloorLine, AFrameThatIsLateWhenTheStampsAreSetDoesNotMoveTheLine) {
    Exact film;
    film.Run(60.0);
    const FloorLine::Answer answer = film.Step(1.04, 0.04, 70e-3);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), 1.0, 1e-3);
    EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3);
}

TEST(FloorLine, StampsSetDuringASilenceAreSetByWhatTheArrivalsSay) {
    for (const double jump : {3'600.0, 100.0, 20.0, 1.0, -3'600.0, -100.0}) {
        SCOPED_TRACE(jump);
        Exact film;
        film.Run(60.0);
        film.Step(30.0 + jump, 30.0);
        FloorLine::Answer answer = film.Run(0.4);
        EXPECT_EQ(film.line.LastEvent().kind, Kind::kSet);
        EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), jump, 1e-3);
        EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3);
        EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 0.1e-3);
    }
}

TEST(FloorLine, StampsSetByLessThanAStepAreSeenByTheirOddSteps) {
    for (const double jump : {-0.09, -0.05, -0.02, 0.02, 0.05}) {
        for (const Network& network : {kLan, kWiFi}) {
            if (jump > 0.0 && network.jitter > kLan.jitter)
                continue;  // the first frames after it lie below the line, but not by just as much
            SCOPED_TRACE(std::to_string(jump) + ", way of " + std::to_string(network.least));
            const Outcome outcome = Judge(On(network, ClockSet(300, jump)), 2, 300.0);
            ASSERT_EQ(outcome.Events(Kind::kSet).size(), 1u);
            EXPECT_NEAR(SecondsOf(outcome.Events(Kind::kSet).front().size), jump, 1e-3);
            EXPECT_LE(outcome.Error_ms(1.0, 307.0), network.least == kLan.least ? 0.1 : 0.7);
            EXPECT_LE(outcome.rows.back().uncertainty, 2e-3);  // nothing is in doubt
        }
    }
}

TEST(FloorLine, AnOddStepOfStampsAndArrivalsAlikeIsThePauseThatItLooksLike) {
    Exact film;
    film.Run(60.0);
    for (const double pause : {0.057, 0.019, 0.113}) {
        film.Step(pause, pause);
        EXPECT_LE(std::abs(film.Error(film.Run(20.0))), 20e-6);
    }
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kNone);
}

TEST(FloorLine, AQueueAfterAnOddStepIsAQueue) {
    Exact film;
    film.Run(60.0);
    film.Step(0.057, 0.057);
    EXPECT_LE(std::abs(film.Error(film.Run(60.0, 10e-3))), 20e-6);
}

TEST(FloorLine, ASilenceAloneMovesNothing) {
    for (const double silence : {1.0, 60.0, 119.0, 7'200.0}) {
        SCOPED_TRACE(silence);
        Exact film;
        film.Run(60.0);
        const FloorLine::Answer answer = film.Step(silence, silence);
        EXPECT_FALSE(answer.happened);
        EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3 + silence * 0.1e-6);
        EXPECT_LE(std::abs(film.Error(answer)), SecondsOf(answer.uncertainty.value()));
    }
}

TEST(FloorLine, UncertaintyGrowsDuringASilence) {
    Exact film;
    const auto before = film.Run(60.0).uncertainty;
    const auto after = film.Step(3'600.0, 3'600.0).uncertainty;
    EXPECT_GE(after.value(), before.value() + milliseconds(7));  // the crystal's walk alone
}

TEST(FloorLine, FollowsAShorterRouteAndDoubtsItForAnHour) {
    Exact film;
    film.Run(60.0);
    film.Run(2.0, -10e-3);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kLower);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), -10e-3, 1e-4);
    EXPECT_TRUE(film.line.LastEvent().IsRouteChange());
    FloorLine::Answer answer = film.Run(60.0, -10e-3);
    EXPECT_NEAR(film.Error(answer), -10e-3, 0.1e-3);
    EXPECT_GE(answer.uncertainty.value(), milliseconds(10));
    answer = film.Run(3'600.0, -10e-3);
    EXPECT_LE(answer.uncertainty.value(), milliseconds(1));
}

TEST(FloorLine, AQueueAtTheStartThatEndsAtOnceIsFollowedAtOnce) {
    const Outcome outcome =
        Judge(On(kWan, [](Scene& s) { s.delay = [](double t, Dice&) { return t < 10 ? 60e-3 : 0.0; }; }), 3);
    EXPECT_LE(outcome.Error_ms(1.0, 13.0, 30.0), 5.0);
    EXPECT_LE(outcome.Error_ms(0.99, 30.0), 1.0);
}

TEST(FloorLine, TheOriginMovesWithoutATrace) {
    Scene scene = On(kLan, [](Scene& s) { s.seconds = 7'500.0; });
    const Outcome outcome = Judge(scene, 11);
    for (std::size_t i = 1; i < outcome.rows.size(); ++i)  // an hour, and two
        ASSERT_LE(std::abs(outcome.rows[i].error - outcome.rows[i - 1].error),
                  outcome.rows[i].captured < 30.0 ? 5e-3 : 50e-6);
}

TEST(FloorLine, HoldsAgainstALongerRouteAndTellsItOnce) {
    const Scene scene = On(kWan, LongerRoute(200, 500, 15e-3));
    const Outcome outcome = Judge(scene, 3, 200.0);
    EXPECT_LE(outcome.Error_ms(1.0), 0.67);
    const auto longer = outcome.Events(Kind::kLonger);
    ASSERT_GE(longer.size(), 1u);
    EXPECT_NEAR(SecondsOf(longer.front().size), 15e-3, 1e-3);
    EXPECT_TRUE(longer.front().IsRouteChange());
    const auto returned = outcome.Events(Kind::kReturned);
    ASSERT_EQ(returned.size(), 1u);
    EXPECT_NEAR(SecondsOf(returned.front().size), -15e-3, 1e-3);
}

TEST(FloorLine, ALongerRouteDoesNotWalkThroughTheGateThatWidensMeanwhile) {
    Scene scene = On(kLan, LongerRoute(200, 1e9, 2e-3));
    scene.seconds = 2'700.0;
    const Outcome outcome = Judge(scene, 3, 200.0);
    EXPECT_LE(outcome.Error_ms(0.99), 1.6);  // the crystal goes its own way meanwhile
    EXPECT_GE(outcome.Coverage(), 99.0);
    EXPECT_TRUE(outcome.Events(Kind::kReturned).empty());
}

TEST(FloorLine, FramesThatGrowAreNotTakenForAnotherRate) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        Scene scene = On(kWiFi);
        scene.fps = 30.0;
        scene.skew = 100e-6;
        scene.lost = 0.05;
        scene.delay = [frame = 0](double t,
                                  Dice& dice) mutable {  // a moving scene: what is larger comes later
            const double size = std::exp(0.7 * (dice.Uniform() + dice.Uniform() + dice.Uniform() - 1.5));
            return frame++ % 25 == 0 ? 20e-3 : 2e-3 * size * (t > 240 && t < 360 ? 3.0 : 1.0);
        };
        const Outcome outcome = Judge(scene, seed);
        EXPECT_LE(outcome.Error_ms(0.99), 1.2);
        EXPECT_TRUE(outcome.Events(Kind::kRate).empty());
    }
}

TEST(FloorLine, AQueueThatBreathesIsNoRouteChange) {
    const Outcome outcome = Judge(On(kWan, [](Scene& s) { s.delay = Queueing(150, 560, 120e-3); }), 3, 150.0);
    EXPECT_TRUE(outcome.Events(Kind::kLonger).empty());
    EXPECT_TRUE(outcome.Events(Kind::kAnew).empty());
}

TEST(FloorLine, BelievesALongerRouteAfterAnHour) {
    Exact film;
    film.Run(60.0);
    FloorLine::Answer answer = film.Run(3'590.0, 15e-3);
    EXPECT_LE(std::abs(film.Error(answer)), 0.1e-3);
    answer = film.Run(30.0, 15e-3);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kAnew);
    EXPECT_NEAR(SecondsOf(film.line.LastEvent().size), 15e-3, 1e-3);
    EXPECT_TRUE(film.line.LastEvent().IsRouteChange());
    EXPECT_NEAR(film.Error(answer), 15e-3, 0.1e-3);
    EXPECT_GE(answer.uncertainty.value(), milliseconds(15));
}

TEST(FloorLine, FollowsACrystalThatWarmsUp) {
    const Outcome outcome = Judge(
        On(kLan,
           [](Scene& s) { s.stampShift = [](double t) { return -20e-6 * 120.0 * std::exp(-t / 120.0); }; }),
        5);
    EXPECT_LE(outcome.Error_ms(0.99), 0.19);
    EXPECT_GE(outcome.Coverage(), 94.8);
    EXPECT_GE(outcome.Events(Kind::kRate).size(), 1u);
}

TEST(FloorLine, FollowsAClockThatItsCameraSlews) {
    for (const double rate : {-500e-6, 500e-6}) {
        SCOPED_TRACE(rate);
        const Outcome outcome =
            Judge(On(kLan,
                     [&](Scene& s) {
                         s.stampShift = [=](double t) { return rate * std::clamp(t - 300.0, 0.0, 100.0); };
                     }),
                  6, 300.0);
        EXPECT_GE(outcome.Events(Kind::kRate).size(), 2u);                    // its begin and its end
        EXPECT_LE(outcome.Error_ms(1.0, 300.0), 6.0 * std::abs(rate) * 1e3);  // found after four blocks
        EXPECT_LE(outcome.Error_ms(1.0, 310.0, 399.0), 0.3);
        EXPECT_LE(outcome.Error_ms(1.0, 410.0), 0.3);
        EXPECT_GE(outcome.Coverage(), 98.5);
    }
}

TEST(FloorLine, LearnsAGreatSkewAtOnceAndWithoutDoubt) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        const Outcome outcome = Judge(On(kLan, [](Scene& s) { s.skew = 500e-6; }), seed);
        EXPECT_TRUE(outcome.Events(Kind::kLower).empty());
        EXPECT_LE(outcome.rows.back().uncertainty, 0.15e-3);
    }
}

TEST(FloorLine, FollowsARateThatNoCrystalHasAfterItWasLostOnce) {
    for (const double rate : {-2'000e-6, 2'000e-6, -700e-6, 4'000e-6}) {
        SCOPED_TRACE(rate);
        const Outcome outcome = Judge(On(kLan, [&](Scene& s) { s.skew = rate; }), 8, 300.0);
        const auto lost = outcome.Events(Kind::kLost);
        ASSERT_EQ(lost.size(), 1u);
        EXPECT_LE(outcome.Error_ms(0.99, 120.0), 0.08);
        EXPECT_GE(outcome.Coverage(120.0), 99.0);
        for (const Outcome::Row& row : outcome.rows)
            EXPECT_TRUE(row.captured < 60.0 || std::isfinite(row.uncertainty));
    }
}

TEST(FloorLine, GivesUpOnAWildRateAndTriesAgainEverLessOften) {
    for (const double rate : {-30'000e-6, 30'000e-6}) {
        SCOPED_TRACE(rate);
        FloorLine line(kRate_Hz);
        std::vector<double> lost;
        double answered = 0.0;
        for (const Shot& shot : Film(On(kLan, [&](Scene& s) { s.skew = rate, s.seconds = 1'800.0; }), 8)) {
            const FloorLine::Answer answer = line.Feed(At(shot.arrived), shot.rtp_ts);
            answered += answer.uncertainty ? 0.04 : 0.0;
            EXPECT_EQ(answer.uncertainty.has_value(), line.Map(shot.rtp_ts).has_value() || answer.happened);
            if (answer.happened && line.LastEvent().kind == Kind::kLost)
                lost.push_back(shot.captured);
        }
        ASSERT_GE(lost.size(), 5u);
        EXPECT_LE(lost[0], 60.0);
        EXPECT_GE(lost[1] - lost[0], 10.0);
        EXPECT_LE(lost[1] - lost[0], 60.0);
        EXPECT_GE(lost[2] - lost[1], 60.0);
        EXPECT_GE(lost[3] - lost[2], 120.0);
        EXPECT_GE(lost[4] - lost[3], 240.0);
        EXPECT_LE(answered, 300.0);
    }
}

TEST(FloorLine, ComesBackWhenTheRateIsACrystalsAgain) {
    const Outcome outcome = Judge(
        On(kLan, [](Scene& s) { s.stampShift = [](double t) { return 2'000e-6 * std::min(t, 50.0); }; }), 9,
        400.0);
    ASSERT_EQ(outcome.Events(Kind::kLost).size(), 1u);
    EXPECT_LE(outcome.Error_ms(0.99, 200.0), 0.05);
    EXPECT_TRUE(std::isfinite(outcome.rows.back().uncertainty));
}

TEST(FloorLine, SaysThatWholeMillisecondsTellLess) {
    Exact film;
    const FloorLine::Answer fine = film.Run(60.0);
    FloorLine line(kRate_Hz);
    FloorLine::Answer coarse;
    for (std::uint32_t i = 0; i < 1'500; ++i)
        coarse = line.Feed(At(i * 0.04), i * 3'600);
    EXPECT_GE(coarse.uncertainty.value(), fine.uncertainty.value() + milliseconds(1));
}

TEST(FloorLine, SaysThatStampsJitterByThemselves) {
    Dice dice(3);
    const Scene scene =
        On(kLan, [&](Scene& s) { s.stampShift = [&](double) { return (dice.Uniform() - 0.5) * 4e-3; }; });
    EXPECT_GE(Judge(scene, 10).Coverage(), 99.0);
}

// ---- wraps, years, and whatever comes
// ----------------------------------------------------------------------

class FloorLineRate : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(FloorLineRate, GoesOnOverWraps) {
    Exact film(GetParam());
    const double wrap = 4294967296.0 / GetParam();
    film.Run(30.0);
    for (double passed = 0.0; passed < std::min(3.0 * wrap, 1e6);) {
        const double step = std::max(0.04, std::min(wrap * 0.4, 3'000.0));
        const FloorLine::Answer answer = film.Step(step, step);
        EXPECT_FALSE(answer.happened);
        EXPECT_LE(std::abs(film.Error(answer)), 1.0 / GetParam() + step * 1e-6);
        film.Run(2.0);
        passed += step;
        passed = step < 1.0 ? passed + 0.1 : passed;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FloorLineRate,
                         ::testing::Values(8'000u, 44'100u, 48'000u, 90'000u, 1'000'000u, 27'000'000u,
                                           1'000'000'000u, 4'294'967'295u));

TEST(FloorLine, CountsTheWrapsOfALongSilence) {
    for (const double hours : {6.0, 7.0, 13.0, 14.0, 20.0, 23.0}) {  // 90 kHz wraps after 13.3
        SCOPED_TRACE(hours);
        Exact film;
        film.Run(600.0);
        const FloorLine::Answer answer = film.Step(hours * 3'600.0, hours * 3'600.0);
        EXPECT_FALSE(answer.happened);
        EXPECT_LE(std::abs(film.Error(answer)), SecondsOf(answer.uncertainty.value()));
    }
}

TEST(FloorLine, StartsAnewAfterADay) {
    for (const double days : {1.1, 400.0, -2.0}) {
        SCOPED_TRACE(days);
        Exact film;
        film.Run(60.0);
        const FloorLine::Answer answer = film.Step(17.0, days * 86'400.0);
        EXPECT_LE(std::abs(film.Error(answer)), 1e-6);
        EXPECT_FALSE(answer.settled);
    }
}

TEST(FloorLine, YearsLoseNoPrecision) {
    Exact film;
    film.Run(60.0);
    for (int day = 0; day < 5 * 365; ++day) {
        for (int part = 0; part < 4; ++part) {
            film.Step(21'590.0, 21'590.0);
            film.Run(10.0);
        }
    }
    film.Run(600.0);
    for (int i = 0; i < 100; ++i)
        EXPECT_LE(std::abs(film.Error(film.Step(0.04, 0.04))), 2e-7);
    EXPECT_NEAR(film.line.SkewPpm(), 0.0, 1e-3);
    EXPECT_EQ(film.line.LastEvent().kind, Kind::kNone);
}

TEST(FloorLine, StampsSetAgainAndAgainLoseNoPrecision) {
    Exact film;
    film.Run(60.0);
    for (int i = 0; i < 20'000; ++i) {
        film.Step(20'000.04, 0.04);  // by hours, forward: a hundred years of stamps
        film.Run(1.0);
    }
    EXPECT_LE(std::abs(film.Error(film.Run(60.0))), 20e-6);
}

/// What the line owes whoever feeds it, whatever that was.
void ExpectSound(const FloorLine& line, const FloorLine::Answer& answer) {
    ASSERT_TRUE(std::isfinite(line.SkewPpm()));
    ASSERT_LE(std::abs(line.SkewPpm()), 10'200.0);
    ASSERT_GE(line.Queue().count(), 0);
    ASSERT_GE(answer.uncertainty.value_or(microseconds(1)).count(), 0);
}

struct Habit {
    std::string name;
    std::function<void(Dice&, std::uint64_t& ticks, std::uint32_t& rtp_ts)> next;
};

class FloorLineUnder : public ::testing::TestWithParam<Habit> {};

TEST_P(FloorLineUnder, EveryAnswerIsSound) {
    for (const std::uint32_t rate_Hz : {1u, 2u, 8'000u, 90'000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        SCOPED_TRACE(rate_Hz);
        Dice dice(rate_Hz);
        FloorLine line(rate_Hz);
        auto ticks = static_cast<std::uint64_t>(kStart);
        std::uint32_t rtp_ts = 0;
        for (int i = 0; i < 20'000; ++i) {
            GetParam().next(dice, ticks, rtp_ts);
            const TimePoint arrival(Ticks(static_cast<std::int64_t>(ticks)));
            const FloorLine::Answer answer = line.Feed(arrival, rtp_ts);
            ASSERT_NO_FATAL_FAILURE(ExpectSound(line, answer)) << "frame " << i;
            ASSERT_LE(answer.latest_host, arrival);
            line.Map(dice.Bits());
        }
        // And it recovers: what is regular is followed again, as soon as it is believed.
        line.Restart();
        FloorLine::Answer last;
        TimePoint arrival{};
        for (std::uint32_t i = 0; i < 100; ++i) {
            arrival = At(i * 0.04);
            last = line.Feed(arrival, rtp_ts + static_cast<std::uint32_t>(std::int64_t{rate_Hz} * i / 25));
        }
        ASSERT_LE(std::abs(SecondsOf(last.fastest_host) - SecondsOf(arrival)), 1.0);
    }
}

std::uint64_t Wide(Dice& dice) {
    return (std::uint64_t{dice.Bits()} << 32) | dice.Bits();
}

INSTANTIATE_TEST_SUITE_P(
    All, FloorLineUnder,
    ::testing::Values(
        Habit{"RandomStampsAndTimes",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks = Wide(dice);
                  rtp_ts = dice.Bits();
              }},
        Habit{"RandomStamps",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks += dice.Bits() % 800'000;
                  rtp_ts = dice.Bits();
              }},
        Habit{"RandomSteps",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks += Wide(dice) >> (20 + dice.Bits() % 44);
                  rtp_ts += dice.Bits() >> (dice.Bits() % 32);
              }},
        Habit{"EndsOfTime",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  constexpr std::uint64_t kEnd = std::uint64_t{1} << 63;
                  ticks = dice.Falls(0.01) ? kEnd - (dice.Bits() % 2) * 10'000'000 - 1 : ticks;
                  ticks = dice.Falls(0.01) ? kEnd + (dice.Bits() % 2) * 10'000'000 : ticks;
                  ticks = ticks + 400'000 == kEnd ? ticks : ticks + dice.Bits() % 3;
                  rtp_ts += dice.Falls(0.5) ? 1 : 0xFFFFFFFF;
              }},
        Habit{"ArrivalsThatRunBack",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks += dice.Bits() % 400'000;
                  ticks -= 300'000;
                  rtp_ts += dice.Bits() % 8'000;
              }},
        Habit{"AFrameInFiveIsARandomOne",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks += 400'000;
                  rtp_ts = dice.Falls(0.2) ? dice.Bits() : rtp_ts + 3'600;
              }},
        Habit{"SilencesOfHours",
              [](Dice& dice, std::uint64_t& ticks, std::uint32_t& rtp_ts) {
                  ticks += dice.Falls(0.01) ? std::uint64_t{dice.Bits()} * 400 : 400'000;
                  rtp_ts += dice.Falls(0.01) ? dice.Bits() : 3'600;
              }},
        Habit{"TheSameStampForEver", [](Dice&, std::uint64_t& ticks, std::uint32_t&) { ticks += 400'000; }},
        Habit{"TheSameTimeForEver", [](Dice&, std::uint64_t&, std::uint32_t& rtp_ts) { rtp_ts += 3'600; }}),
    test::CaseName());

}  // namespace
}  // namespace camclock::receiver
