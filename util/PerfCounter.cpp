#include "util/PerfCounter.h"

#include <atomic>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <chrono>
#endif

namespace camclock {
namespace {

#if defined(_WIN32)
std::int64_t ReadSystemCounter() {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

std::int64_t SystemFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}
#else
std::int64_t ReadSystemCounter() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::int64_t SystemFrequency() {
    return 1'000'000'000;
}
#endif

// Atomic, since a test may replace the counter while a worker of another object reads it.
std::atomic<PerfCounter::Source> theSource{&ReadSystemCounter};
std::atomic<std::int64_t> theFrequency{0};  // 0: not asked for yet

}  // namespace

std::int64_t PerfCounter::Read() {
    return theSource.load(std::memory_order_relaxed)();
}

std::int64_t PerfCounter::Frequency() {
    std::int64_t frequency = theFrequency.load(std::memory_order_relaxed);
    if (frequency == 0) {
        frequency = SystemFrequency();
        theFrequency.store(frequency, std::memory_order_relaxed);
    }
    return frequency;
}

void PerfCounter::Replace(Source source, std::int64_t frequency) {
    theSource = source;
    theFrequency = frequency;
}

void PerfCounter::Restore() {
    theSource = &ReadSystemCounter;
    theFrequency = SystemFrequency();
}

}  // namespace camclock
