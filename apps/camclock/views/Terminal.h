#pragma once

#include "apps/camclock/Failure.h"

#include <cstddef>

namespace camclock::app {

/// The terminal behind standard output, and Ctrl-C. The only place that asks the operating system for either.
class Terminal {
public:
    /// Is standard output a terminal that understands cursor sequences?
    static bool IsInteractive();

    struct Size {
        std::size_t columns = 80;
        std::size_t rows = 24;
    };

    /// Its size; 80 by 24 when it does not tell.
    static Size GetSize();

    /// From now on Ctrl-C and a request to terminate do not end the process but set a flag; a second one ends
    /// it.
    static void CatchInterrupts();

    static bool Interrupted();

    /// From now on they end the process again.
    static void ReleaseInterrupts();

    /// Ends the process at once, without waiting for anything but what standard output and standard error
    /// still have to say.
    [[noreturn]] static void EndNow(ExitCode code);
};

}  // namespace camclock::app
