#pragma once

#include <benchmark/benchmark.h>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT
#endif

namespace camclock::bench {

/// While one of these lives, callgrind counts the instructions of this thread (`--collect-atstart=no`), so
/// that what a bench prepares is left out. Outside valgrind it costs a few instructions and does nothing.
class CountInstructions {
public:
    CountInstructions() { CALLGRIND_TOGGLE_COLLECT; }
    ~CountInstructions() { CALLGRIND_TOGGLE_COLLECT; }
    CountInstructions(const CountInstructions&) = delete;
    CountInstructions& operator=(const CountInstructions&) = delete;
};

/// Runs `job` once an iteration. Give the bench a fixed number of iterations: the instructions are divided by
/// it.
template <class Job>
void Measure(benchmark::State& state, Job job) {
    const CountInstructions count;
    for (auto _ : state)
        job();
}

}  // namespace camclock::bench
