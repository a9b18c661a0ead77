#pragma once

// May a test fork and go on in the child? Windows does not fork, and ThreadSanitizer allows no thread there.
#if defined(_WIN32) || defined(__SANITIZE_THREAD__)
#define CAMCLOCK_TESTS_CAN_FORK 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CAMCLOCK_TESTS_CAN_FORK 0
#endif
#endif
#if !defined(CAMCLOCK_TESTS_CAN_FORK)
#define CAMCLOCK_TESTS_CAN_FORK 1
#endif

#if CAMCLOCK_TESTS_CAN_FORK
#include <sys/wait.h>
#include <unistd.h>

namespace camclock::test {

/// Runs `job` in a child of fork(); true when that returned true there.
template <class Job>
bool SucceedsInAChild(Job job) {
    const pid_t child = fork();
    if (child == 0)
        _exit(job() ? 0 : 1);
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace camclock::test
#endif
