#include "util/PerfCounter.h"

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
std::int64_t SystemFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}
#else
std::int64_t SystemFrequency() {
    return 1'000'000'000;
}
#endif

}  // namespace

#if defined(_WIN32)
std::int64_t PerfCounter::_ReadSystem() {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}
#else
std::int64_t PerfCounter::_ReadSystem() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
#endif

std::int64_t PerfCounter::_AskFrequency() {
    const std::int64_t frequency = SystemFrequency();
    frequency_.store(frequency, std::memory_order_relaxed);
    return frequency;
}

void PerfCounter::Replace(Source source, std::int64_t frequency) {
    source_ = source;
    frequency_ = frequency;
}

void PerfCounter::Restore() {
    source_ = nullptr;
    frequency_ = SystemFrequency();
}

}  // namespace camclock
