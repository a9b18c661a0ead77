#pragma once

// The one lock type of the process clock, the probe and the packet queue: the platform's own light lock. It
// has the names that std::lock_guard asks for.
#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <winsock2.h>  // before windows.h, which would bring in the old winsock.h

#include <windows.h>
#else
#include <mutex>
#endif

namespace camclock {

#if defined(_WIN32)
class CriticalSection {
public:
    /// Without the system's record for debuggers: one that is never destroyed leaves nothing behind.
    CriticalSection() { InitializeCriticalSectionEx(&section_, 0, CRITICAL_SECTION_NO_DEBUG_INFO); }
    ~CriticalSection() { DeleteCriticalSection(&section_); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock() { EnterCriticalSection(&section_); }
    void unlock() { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};
#else
using CriticalSection = std::mutex;
#endif

}  // namespace camclock
