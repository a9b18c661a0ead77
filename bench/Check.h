#pragma once

#include <string>

namespace camclock::bench {

/// A proof, run by `camclock_bench --check` before anything is timed, that all variants of a job give the
/// same results. It returns what differs, or nothing.
using Check = std::string (*)();

struct RegisterCheck {
    RegisterCheck(const char* name, Check check);
};

}  // namespace camclock::bench
