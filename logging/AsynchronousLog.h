#pragma once

#include "logging/EntryQueue.h"
#include "logging/LogWrap.h"
#include "logging/MessageSlot.h"
#include "util/Tick.h"

#include <camclock/TimePoint.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace camclock {

/// A log that costs its callers next to nothing: they hand over a callable that will write the text, and one
/// worker thread stamps it with the time and thread of its hand-over, runs it and gives the text to a sink.
///
/// Owned by the object that logs. `Post` may be called from any thread, the rest belongs to the owner.
///
///     AsynchronousLog log(new OfStreamWrap(file));
///     log.Post([count](std::stringstream& out) { Print(out, "Packet #", count, "\n"); });
///
/// The worker looks after its queue at the process's tick, every 10 ms; no poster wakes it.
/// Destroying the log drops what is still queued: there is no last flush, so that the end of a
/// session never waits for a slow disk.
class AsynchronousLog {
public:
    /// A message in its general form; the worker gives it the stream to write into.
    using Message = std::function<void(std::stringstream&)>;

    /// Takes `sink` over, which is not null. Throws `std::system_error` when no thread can be started.
    explicit AsynchronousLog(LogWrap* sink);

    /// Stops and joins the worker; the batch in hand is still written.
    ~AsynchronousLog();

    AsynchronousLog(const AsynchronousLog&) = delete;
    AsynchronousLog& operator=(const AsynchronousLog&) = delete;

    /// Hands a message over: a callable that writes its text into the stream it is given. It runs later, on
    /// the worker, and so captures by value everything that it prints. Messages of one thread are written in
    /// the order of their posts.
    template <class Callable,
              std::enable_if_t<std::is_invocable_v<std::decay_t<Callable>&, std::stringstream&>, int> = 0>
    void Post(Callable&& message) {
        if (!running_)
            return;
        const Stamp stamp = _StampNow();
        const std::lock_guard<std::mutex> guard(queueMutex_);
        if (queue_.Empty())
            sleeper_.WakeAt(Sleeper::kNow, std::memory_order_release);
        Entry& entry = queue_.Next();
        entry.stamp = stamp;
        entry.message.Put(std::forward<Callable>(message));
        queue_.Commit();
    }

    /// The same for what only converts to a callable. An empty one ends the process on the worker, as
    /// `std::bad_function_call`.
    void Post(Message message);

private:
    struct ThreadId {
        std::array<char, 24> text;  // a 64-bit decimal
        std::size_t length;
    };

    struct Stamp {
        TimePoint postedAt;  // system clock
        ThreadId thread;     // that posted
    };

    struct Entry {
        Stamp stamp;
        MessageSlot message;
    };

    static Stamp _StampNow();
    static ThreadId _ThreadId();
    void _Run();
    void _TakeQueue(EntryQueue<Entry>::Batch& batch);
    void _WriteBatch(EntryQueue<Entry>::Batch& batch);

    std::unique_ptr<LogWrap> sink_;
    std::atomic<bool> running_{true};
    std::mutex queueMutex_;
    EntryQueue<Entry> queue_;  // guarded by queueMutex_
    Sleeper sleeper_;          // due while there is something in queue_; set under queueMutex_
    std::thread worker_;       // last: everything it uses is made before it starts
};

}  // namespace camclock
