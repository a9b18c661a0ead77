#include "util/PerfCounter.h"

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace camclock {

std::int64_t PerfCounter::_ReadSystem() {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

std::int64_t PerfCounter::_SystemFrequency() {
    static const std::int64_t frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);  // never changes while the system runs
        return value.QuadPart;
    }();
    return frequency;
}

}  // namespace camclock
#endif
