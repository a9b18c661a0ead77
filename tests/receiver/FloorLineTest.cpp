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

/// A film without any noise: 25 frames a second, exact stamps, a way of 30 ms.
class Exact {
public:
    explicit Exact(std::uint32_t rate_Hz = kRate_Hz)
        : rate_Hz_(rate_Hz)
        , line(rate_Hz) {}

    /// The next frame, after `step` seconds of stamps and `elapsed` of the host's.
    FloorLine::Answer Step(double step, double elapsed, double late = 0.0) {
        stamp_ += step;
        captured += elapsed;
        return line.Feed(At(captured + 0.030 + late), Stamp());
    }
    FloorLine::Answer Run(double seconds, double late = 0.0) {
        FloorLine::Answer answer;
        for (const double end = captured + seconds - 0.02; captured < end;)
            answer = Step(0.04, 0.04, late);
        return answer;
    }
    std::uint32_t Stamp() const {
        return static_cast<std::uint32_t>(static_cast<std::int64_t>(std::llround(stamp_ * rate_Hz_)));
    }
    /// How far an answer for the newest frame is off, in seconds.
    double Error(const FloorLine::Answer& answer) const {
        return SecondsOf(answer.fastest_host) - captured - 0.030;
    }

private:
    std::uint32_t rate_Hz_;
    double stamp_ = 0.0;

public:
    FloorLine line;
    double captured = 0.0;
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

INSTANTIATE_TEST_SUITE_P(All, FloorLineOnNetworks,
                         ::testing::Values(NetworkCase{"Lan", On(kLan), 90, 0.029, 0.043, 0.048, 99},
                                           NetworkCase{"BusyLan", On(kBusy), 90, 0.057, 0.080, 0.098, 99},
                                           NetworkCase{"WiFi", On(kWiFi), 90, 0.108, 0.183, 0.193, 99},
                                           NetworkCase{"Wan", On(kWan), 90, 0.154, 0.243, 0.288, 99}),
                         test::CaseName());

}  // namespace
}  // namespace camclock::receiver
