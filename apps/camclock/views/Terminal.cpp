#include "apps/camclock/views/Terminal.h"

#include "apps/camclock/views/Output.h"

#include <csignal>
#include <cstdlib>

#ifdef _WIN32
#include <io.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#endif

namespace camclock::app {
namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int signal) {
    interrupted = interrupted + 1;
    // Wrappers such as timeout(1) send a signal to the process and to its group: two are still one wish to
    // end.
    if (interrupted >= 2)
        std::signal(signal, SIG_DFL);
    else
        std::signal(signal, &OnInterrupt);  // some systems forget the handler when they call it
}

}  // namespace

#ifdef _WIN32

bool Terminal::IsInteractive() {
    return false;  // a console of Windows may print cursor sequences instead of obeying them
}

Terminal::Size Terminal::GetSize() {
    return {};
}

#else

bool Terminal::IsInteractive() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing of the program changes the environment
    const char* kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

Terminal::Size Terminal::GetSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {};
    return {size.ws_col, size.ws_row};
}

#endif

void Terminal::CatchInterrupts() {
    std::signal(SIGINT, &OnInterrupt);
    std::signal(SIGTERM, &OnInterrupt);
}

void Terminal::ReleaseInterrupts() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool Terminal::Interrupted() {
    return interrupted != 0;
}

void Terminal::EndNow(ExitCode code) {
    Output::Standard().Finish();
    Output::Error().Flush(std::chrono::milliseconds(100));
    std::_Exit(static_cast<int>(code));
}

}  // namespace camclock::app
