#include "logging/AsynchronousLog.h"

#include "logging/Text.h"

#include <log4cpp/threading/Threading.hh>

#include <chrono>
#include <utility>

namespace camclock {
namespace {

constexpr std::chrono::milliseconds kPollInterval{10};

/// log4cpp's text for this thread, which never changes.
const std::string& ThreadId() {
    thread_local const std::string id = log4cpp::threading::getThreadId();
    return id;
}

}  // namespace

AsynchronousLog::AsynchronousLog(LogWrap* sink)
    : sink_(sink) {
    worker_ = std::thread(&AsynchronousLog::_Run, this);
}

AsynchronousLog::~AsynchronousLog() {
    running_ = false;
    worker_.join();
}

void AsynchronousLog::Post(Message message) {
    if (!running_)
        return;
    // Log stamps come from the system clock, not from the settable process clock: they belong to the machine.
    Entry entry{std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now()), std::move(message),
                ThreadId()};
    const std::lock_guard<std::mutex> guard(queueMutex_);
    queue_.push_back(std::move(entry));
}

void AsynchronousLog::_Run() {
    std::vector<Entry> batch;
    while (running_) {
        {
            const std::lock_guard<std::mutex> guard(queueMutex_);
            queue_.swap(batch);  // the emptied memory goes back and forth, so that a busy log allocates none
        }
        if (batch.empty())
            std::this_thread::sleep_for(kPollInterval);
        else
            _WriteBatch(batch);
    }
}

void AsynchronousLog::_WriteBatch(std::vector<Entry>& batch) {
    std::string stamp;
    for (Entry& entry : batch) {
        stamp.clear();
        AppendText(stamp, "[[");
        AppendLogTime(stamp, entry.postedAt);
        AppendText(stamp, " [");
        AppendText(stamp, entry.threadId);
        AppendText(stamp, "] ]] ");
        std::stringstream stream;
        stream.write(stamp.data(), static_cast<std::streamsize>(stamp.size()));
        entry.message(stream);
        sink_->Write(stream);
        entry = Entry{};
    }
    batch.clear();
}

}  // namespace camclock
