#include "logging/AsynchronousLog.h"

#include "logging/Text.h"

#include <log4cpp/threading/Threading.hh>

#include <chrono>
#include <locale>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace camclock {
namespace {

/// A string stream that every message finds fresh. Making one costs more than most messages, so the last one
/// is emptied and used again, unless a message has changed how it formats.
class MessageStream {
public:
    std::stringstream& Fresh() {
        if (!stream_ || !_IsUnchanged())
            stream_.emplace();
        stream_->str(std::string());
        stream_->clear();
        return *stream_;
    }

private:
    bool _IsUnchanged() const {
        return stream_->flags() == (std::ios_base::skipws | std::ios_base::dec) &&
               stream_->precision() == 6 && stream_->width() == 0 && stream_->fill() == ' ' &&
               stream_->exceptions() == std::ios_base::goodbit && stream_->tie() == nullptr &&
               stream_->getloc() == std::locale();
    }

    std::optional<std::stringstream> stream_;
};

}  // namespace

AsynchronousLog::AsynchronousLog(LogWrap* sink)
    : sink_(sink) {
    worker_ = std::thread(&AsynchronousLog::_Run, this);
}

AsynchronousLog::~AsynchronousLog() {
    running_ = false;
    sleeper_.Rouse();
    worker_.join();
}

void AsynchronousLog::Post(Message message) {
    Post([message = std::move(message)](std::stringstream& out) { message(out); });
}

AsynchronousLog::Stamp AsynchronousLog::_StampNow() {
    // Log stamps come from the system clock, not from the settable process clock: they belong to the machine.
    // The thread's text never changes. It has no destructor, so that a static object's destructor, which runs
    // after the main thread's own objects are gone, may still post.
    thread_local const ThreadId threadId = _ThreadId();
    return {std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now()), threadId};
}

/// log4cpp's text for the calling thread.
AsynchronousLog::ThreadId AsynchronousLog::_ThreadId() {
    const std::string text = log4cpp::threading::getThreadId();
    ThreadId id{};
    id.length = text.copy(id.text.data(), id.text.size());
    return id;
}

void AsynchronousLog::_Run() {
    EntryQueue<Entry>::Batch batch;
    while (running_) {
        _TakeQueue(batch);
        if (batch.Empty())
            sleeper_.Sleep();
        else
            _WriteBatch(batch);
    }
}

/// Gives the memory of the batch that has been written back to the queue and takes what has come since.
void AsynchronousLog::_TakeQueue(EntryQueue<Entry>::Batch& batch) {
    auto written = std::move(batch);  // what is too much to keep is freed without the lock
    const std::lock_guard<std::mutex> guard(queueMutex_);
    queue_.Recycle(written);
    sleeper_.WakeAt(Sleeper::kNever, std::memory_order_release);
    batch = queue_.TakeAll();
}

void AsynchronousLog::_WriteBatch(EntryQueue<Entry>::Batch& batch) {
    MessageStream stream;
    for (auto* block = batch.first.get(); block != nullptr; block = block->next.get()) {
        for (std::size_t i = 0; i < block->used; ++i) {
            Entry& entry = block->entries[i];
            std::stringstream& out = stream.Fresh();
            const Stamp& stamp = entry.stamp;
            Print(out, "[[", stamp.postedAt, " [",
                  std::string_view(stamp.thread.text.data(), stamp.thread.length), "] ]] ");
            entry.message.Run(out);
            sink_->Write(out);
            entry.message.Clear();
        }
    }
}

}  // namespace camclock
