#pragma once

#include <cstddef>

namespace camclock::app {

/// The terminal behind standard output, and Ctrl-C. The only place that asks the operating system for either.
class Terminal {
public:
    /// Is standard output a terminal that understands cursor sequences?
    static bool IsInteractive();

    /// Its width in columns; 80 when it does not tell.
    static std::size_t Width();

    /// From now on Ctrl-C and a request to terminate do not end the process but set a flag; a second one ends
    /// it.
    static void CatchInterrupts();

    static bool Interrupted();
};

}  // namespace camclock::app
