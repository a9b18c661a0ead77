#include "Check.h"
#include "Measure.h"
#include "logging/Text.h"
#include "plain/PlainClock.h"
#include "plain/PlainTimeText.h"

#include <camclock/Utilities.h>

#include <benchmark/benchmark.h>

#include <ctime>

#if defined(CAMCLOCK_BENCH_SPDLOG)
#include <spdlog/pattern_formatter.h>
#endif

namespace camclock::bench {
namespace {

constexpr int kIterations = 1'000'000;

void ProcessClock(benchmark::State& state) {
    Utilities& clock = Utilities::getInstance();
    clock.AnchorToSystemClock();
    Measure(state, [&] { benchmark::DoNotOptimize(clock.GetTime()); });
}
BENCHMARK(ProcessClock)->Name("get_time/camclock")->Iterations(kIterations);

void PlainProcessClock(benchmark::State& state) {
    PlainClock clock;
    Measure(state, [&] { benchmark::DoNotOptimize(clock.GetTime()); });
}
BENCHMARK(PlainProcessClock)->Name("get_time/plain")->Iterations(kIterations);

void ClockGettime(benchmark::State& state) {
    timespec time{};
    Measure(state, [&] {
        clock_gettime(CLOCK_REALTIME, &time);
        benchmark::DoNotOptimize(time);
    });
}
BENCHMARK(ClockGettime)->Name("get_time/clock_gettime")->Iterations(kIterations);

// ---- the text of a time: a log line every 400 us
// ------------------------------------------------------------------

constexpr TimePoint kStart{Ticks(17'951'232'123'456'789)};
constexpr Ticks kStep{4'000};

void LogTimeText(benchmark::State& state) {
    TimePoint time = kStart;
    char text[kLongestLogTime];
    Measure(state, [&] {
        benchmark::DoNotOptimize(WriteLogTime(text, time += kStep));
        benchmark::ClobberMemory();
    });
}
BENCHMARK(LogTimeText)->Name("time_text/camclock")->Iterations(kIterations);

void PlainText(benchmark::State& state) {
    TimePoint time = kStart;
    Measure(state, [&] { benchmark::DoNotOptimize(PlainTimeText(time += kStep, kLogTimeFormat)); });
}
BENCHMARK(PlainText)->Name("time_text/plain")->Iterations(kIterations);

#if defined(CAMCLOCK_BENCH_SPDLOG)
void SpdlogText(benchmark::State& state) {
    spdlog::pattern_formatter formatter("%Y-%m-%d %H:%M:%S.%e", spdlog::pattern_time_type::utc, "");
    spdlog::details::log_msg message("bench", spdlog::level::info, "");
    TimePoint time = kStart;
    spdlog::memory_buf_t text;
    Measure(state, [&] {
        message.time = std::chrono::time_point_cast<std::chrono::system_clock::duration>(time += kStep);
        text.clear();
        formatter.format(message, text);
        benchmark::DoNotOptimize(text.data());
    });
}
BENCHMARK(SpdlogText)->Name("time_text/spdlog")->Iterations(kIterations);
#endif

std::string TimeTextsAgree() {
    TimePoint time{};
    for (int i = 0; i < 100'000; ++i, time += Ticks(2'345'678'901'237)) {
        const std::string text = Text(time);
        if (text != PlainTimeText(time, kLogTimeFormat) ||
            text != TimePointToText(time, kLogTimeFormat, true))
            return text;
    }
    return {};
}
const RegisterCheck timeTextsAgree("time_text", TimeTextsAgree);

}  // namespace
}  // namespace camclock::bench
