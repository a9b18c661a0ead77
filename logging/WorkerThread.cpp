#include "logging/WorkerThread.h"

#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace camclock {

void AllowLateWakeups() {
#if defined(__linux__)
    constexpr unsigned long kSlack_ns = 1'000'000;
    prctl(PR_SET_TIMERSLACK, kSlack_ns, 0UL, 0UL, 0UL);  // a refusal costs nothing but the saving
#endif
}

}  // namespace camclock
