#pragma once

#include "logging/LogWrap.h"

#include <camclock/TimePoint.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace camclock {

/// A log that costs its callers next to nothing: they hand over a callable that will write the text, and one
/// worker thread stamps it with the time and thread of its hand-over, runs it and gives the text to a sink.
///
/// Owned by the object that logs. `Post` may be called from any thread, the rest belongs to the owner.
///
///     AsynchronousLog log(new OfStreamWrap(file));
///     log.Post([count](std::stringstream& out) { out << Text("Packet #", count, "\n"); });
///
/// The worker polls every 10 ms and is never woken. Destroying the log drops what is still queued: there is
/// no last flush, so that the end of a session never waits for a slow disk.
class AsynchronousLog {
public:
    /// Writes one message. It runs later, on the worker: it captures by value everything that it prints.
    using Message = std::function<void(std::stringstream&)>;

    /// Takes `sink` over, which is not null. Throws `std::system_error` when no thread can be started.
    explicit AsynchronousLog(LogWrap* sink);

    /// Stops and joins the worker; the batch in hand is still written.
    ~AsynchronousLog();

    AsynchronousLog(const AsynchronousLog&) = delete;
    AsynchronousLog& operator=(const AsynchronousLog&) = delete;

    /// Hands a message over. Messages of one thread are written in the order of their posts. An empty
    /// callable ends the process on the worker, as `std::bad_function_call`.
    void Post(Message message);

private:
    struct Entry {
        TimePoint postedAt;  // system clock
        Message message;
        std::string threadId;
    };

    void _Run();
    void _WriteBatch(std::vector<Entry>& batch);

    std::unique_ptr<LogWrap> sink_;
    std::atomic<bool> running_{true};
    std::mutex queueMutex_;
    std::vector<Entry> queue_;  // guarded by queueMutex_
    std::thread worker_;        // last: everything it uses is made before it starts
};

}  // namespace camclock
