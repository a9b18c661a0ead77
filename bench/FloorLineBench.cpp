#include "Check.h"
#include "Measure.h"
#include "receiver/FloorLine.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace camclock::bench {
namespace {

using receiver::FloorLine;

constexpr int kIterations = 100'000;  // an hour and more of a camera

struct Arrival {
    TimePoint host;
    std::uint32_t rtp_ts = 0;
};

/// Frames of a camera of 25 a second over Wi-Fi, its crystal 20 ppm fast; every 500th meets a queue.
std::vector<Arrival> Frames() {
    std::mt19937 random(1);
    std::vector<Arrival> frames(kIterations);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const double captured_us = static_cast<double>(i) * 40'000.0;
        const double way_us = 2'000.0 -
                              5'000.0 * std::log((static_cast<double>(random()) + 0.5) / 4294967296.0) +
                              (i % 500 == 0 ? 40'000.0 : 0.0);
        frames[i].host = TimePoint(Ticks(static_cast<std::int64_t>((captured_us + way_us) * 10.0)));
        frames[i].rtp_ts = static_cast<std::uint32_t>(captured_us * 1.00002 * 0.09);
    }
    return frames;
}

void FeedFrame(benchmark::State& state) {
    const std::vector<Arrival> frames = Frames();
    FloorLine line(90'000);
    std::size_t i = 0;
    Measure(state, [&] {
        const Arrival& frame = frames[i++ % frames.size()];
        benchmark::DoNotOptimize(line.Feed(frame.host, frame.rtp_ts));
    });
}
BENCHMARK(FeedFrame)->Name("floor_line/camclock")->Iterations(kIterations);

/// A further packet of a frame, or a B frame: answered, not learned.
void FeedPacket(benchmark::State& state) {
    const std::vector<Arrival> frames = Frames();
    FloorLine line(90'000);
    std::size_t i = 0;
    Measure(state, [&] {
        const Arrival& frame = frames[i++ / 8 % frames.size()];
        benchmark::DoNotOptimize(line.Feed(frame.host, frame.rtp_ts));
    });
}
BENCHMARK(FeedPacket)->Name("floor_line_packet/camclock")->Iterations(kIterations);

/// What one frame in a thousand costs more than: the one that closes a block. Wall time, with the two
/// readings of the clock that it takes to tell.
void FeedTail(benchmark::State& state) {
    const std::vector<Arrival> frames = Frames();
    FloorLine line(90'000);
    std::vector<double> times_ns;
    times_ns.reserve(frames.size());
    std::size_t i = 0;
    for (auto _ : state) {
        const Arrival& frame = frames[i++ % frames.size()];
        const auto before = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(line.Feed(frame.host, frame.rtp_ts));
        const auto after = std::chrono::steady_clock::now();
        times_ns.push_back(std::chrono::duration<double, std::nano>(after - before).count());
        state.SetIterationTime(times_ns.back() * 1e-9);
    }
    const auto tail = times_ns.begin() + static_cast<std::ptrdiff_t>(times_ns.size() * 999 / 1'000);
    std::nth_element(times_ns.begin(), tail, times_ns.end());
    state.counters["p999_ns"] = *tail;
}
BENCHMARK(FeedTail)->Name("floor_line_tail/camclock")->Iterations(kIterations)->UseManualTime();

/// What is timed is a line that follows: the bench's frames are answered within half a millisecond of the
/// fastest.
std::string LineFollows() {
    FloorLine line(90'000);
    const std::vector<Arrival> frames = Frames();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const FloorLine::Answer answer = line.Feed(frames[i].host, frames[i].rtp_ts);
        const std::int64_t fastest = static_cast<std::int64_t>(i) * 400'000 + 20'000;
        const std::int64_t error = answer.fastest_host.time_since_epoch().count() - fastest;
        if (i > 1'000 && (!answer.uncertainty || error < -5'000 || error > 5'000))
            return "frame " + std::to_string(i) + " is " + std::to_string(error) + " ticks off";
    }
    return {};
}
const RegisterCheck lineFollows("floor_line", LineFollows);

}  // namespace
}  // namespace camclock::bench
