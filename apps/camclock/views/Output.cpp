#include "apps/camclock/views/Output.h"

#include "apps/camclock/Text.h"
#include "apps/camclock/views/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include <fcntl.h>
#ifdef _WIN32
#include <io.h>
#include <sys/stat.h>
#else
#include <poll.h>
#include <unistd.h>
#endif

namespace camclock::app {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// A pipe takes so much without waiting once it says that it takes anything (PIPE_BUF of Linux).
constexpr std::size_t kPiece = 4'096;

#ifdef _WIN32

int OpenToAppend(const std::string& file) {
    return _open(file.c_str(), _O_WRONLY | _O_APPEND | _O_CREAT | _O_BINARY, _S_IREAD | _S_IWRITE);
}

bool WaitUntilTaken(int /*descriptor*/, int /*timeOut_ms*/) {
    return true;
}

std::ptrdiff_t WriteSome(int descriptor, const char* data, std::size_t size) {
    return _write(descriptor, data, static_cast<unsigned int>(size));
}

void Close(int descriptor) {
    _close(descriptor);
}

int OpenStandard(int /*descriptor*/) {
    return 0;
}

#else

int OpenToAppend(const std::string& file) {
    constexpr mode_t kEverybodyReads = 0644;
    return open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kEverybodyReads);
}

bool WaitUntilTaken(int descriptor, int timeOut_ms) {
    pollfd waited{descriptor, POLLOUT, 0};
    return poll(&waited, 1, timeOut_ms) > 0;
}

std::ptrdiff_t WriteSome(int descriptor, const char* data, std::size_t size) {
    return write(descriptor, data, size);
}

void Close(int descriptor) {
    close(descriptor);
}

/// 0, or the error of a standard stream that is not open. Its place is taken then, so that no file or socket
/// that is opened later gets its number and our rows.
int OpenStandard(int descriptor) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that is gone is an error of write instead
    int error = 0;
    for (int standard = 0; standard <= descriptor; ++standard) {
        if (fcntl(standard, F_GETFD) >= 0)
            continue;
        error = standard == descriptor ? errno : 0;
        if (open("/dev/null", O_RDWR) < 0)  // takes the lowest number that is free: this one
            break;
    }
    return error;
}

#endif

}  // namespace

Output::Output(int descriptor, std::string name, bool owned)
    : descriptor_(descriptor)
    , name_(std::move(name))
    , owned_(owned)
    , error_(owned ? 0 : OpenStandard(descriptor)) {}

Output::~Output() {
    if (owned_)
        Close(descriptor_);
}

Output& Output::Standard() {
    static Output output(1, "standard output", false);
    return output;
}

Output& Output::Error() {
    static Output output(2, "standard error", false);
    return output;
}

std::unique_ptr<Output> Output::Append(const std::string& file) {
    const int descriptor = OpenToAppend(file);
    return descriptor < 0 ? nullptr : std::unique_ptr<Output>(new Output(descriptor, file, true));
}

void Output::Line(std::string_view text) {
    const std::string line = Printable(text) + '\n';
    Raw(line);
}

void Output::Lines(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        Line(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void Output::Raw(std::string_view bytes) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (error_ == 0)
        pending_ += bytes;
}

bool Output::Flush(milliseconds timeOut) {
    const std::lock_guard<std::mutex> guard(mutex_);
    return _Write(timeOut);
}

bool Output::_Write(milliseconds timeOut) {
    const Clock::time_point deadline = Clock::now() + timeOut;
    std::size_t done = 0;
    while (error_ == 0 && done < pending_.size()) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        if (!WaitUntilTaken(descriptor_, static_cast<int>(std::max<std::int64_t>(left, 0))))
            break;
        const std::ptrdiff_t written =
            WriteSome(descriptor_, pending_.data() + done, std::min(kPiece, pending_.size() - done));
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR && errno != EAGAIN)
            error_ = errno;
    }
    pending_.erase(0, done);
    if (error_ != 0)
        pending_.clear();
    return pending_.empty();
}

bool Output::Finish() {
    while (!Terminal::Interrupted())
        if (Flush(milliseconds(50)))
            return true;
    return Flush(milliseconds(500));
}

std::size_t Output::Pending() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return pending_.size();
}

bool Output::ReaderGone() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return error_ == EPIPE;
}

std::optional<Failure> Output::Trouble() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (error_ == 0 || error_ == EPIPE)
        return std::nullopt;
    return Failure{ExitCode::kOutput,
                   fmt::format("cannot write to {}: {}", name_, std::generic_category().message(error_)),
                   error_ == ENOSPC ? "make room, or write elsewhere" : "write elsewhere"};
}

}  // namespace camclock::app
