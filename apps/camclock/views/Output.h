#pragma once

#include "apps/camclock/Failure.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace camclock::app {

/// Lines of text on their way to a file, a pipe or a terminal, which may be full, slow or gone. Writing never
/// waits longer than it is told to; what failed once is remembered and fails from then on.
///
/// Any thread; a call takes the object's lock.
class Output {
public:
    /// Standard output, and standard error. Their first use in a process must come before anything opens
    /// files.
    static Output& Standard();
    static Output& Error();

    /// Appends to this file; empty when it cannot be opened.
    static std::unique_ptr<Output> Append(const std::string& file);

    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// One line; what in it is no plain text is escaped.
    void Line(std::string_view text);

    /// Text of several lines.
    void Lines(std::string_view text);

    /// Bytes as they are, for cursor sequences.
    void Raw(std::string_view bytes);

    /// Hands over what was written, as far as that goes within `timeOut`; true when nothing is left.
    bool Flush(std::chrono::milliseconds timeOut);

    /// Hands over everything, however long it takes, until it fails or Ctrl-C; then for half a second more.
    bool Finish();

    /// Bytes that wait to be taken.
    std::size_t Pending() const;

    /// Nobody reads what is written: a reason to end, and none to complain.
    bool ReaderGone() const;

    /// Why nothing can be written any more, if so, and the reader is not just gone.
    std::optional<Failure> Trouble() const;

private:
    Output(int descriptor, std::string name, bool owned);
    bool _Write(std::chrono::milliseconds timeOut);

    const int descriptor_;
    const std::string name_;
    const bool owned_;
    mutable std::mutex mutex_;  // guards all below
    std::string pending_;
    int error_ = 0;  // errno of what failed
};

}  // namespace camclock::app
