#pragma once

#include "PlainTimeText.h"
#include "logging/LogWrap.h"

#include <log4cpp/threading/Threading.hh>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace camclock::bench {

/// The asynchronous log as one would write it at first: the thread's text is asked for with every post, the
/// worker takes the queue entry by entry and makes a new string stream for each.
class PlainLog {
public:
    explicit PlainLog(LogWrap* sink)
        : sink_(sink)
        , worker_(&PlainLog::Run, this) {}

    ~PlainLog() {
        running_ = false;
        worker_.join();
    }

    PlainLog(const PlainLog&) = delete;
    PlainLog& operator=(const PlainLog&) = delete;

    void Post(std::function<void(std::stringstream&)> message) {
        if (!running_)
            return;
        Entry entry;
        entry.postedAt = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
        entry.message = std::move(message);
        entry.threadId = log4cpp::threading::getThreadId();
        const std::lock_guard<std::mutex> guard(mutex_);
        queue_.push_back(std::move(entry));
    }

private:
    struct Entry {
        TimePoint postedAt;
        std::function<void(std::stringstream&)> message;
        std::string threadId;
    };

    void Run() {
        while (running_) {
            std::deque<Entry> batch;
            {
                const std::lock_guard<std::mutex> guard(mutex_);
                while (!queue_.empty()) {
                    batch.push_back(std::move(queue_.front()));
                    queue_.pop_front();
                }
            }
            if (batch.empty())
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            for (; !batch.empty(); batch.pop_front()) {
                std::stringstream stream;
                stream << "[[" << PlainTimeText(batch.front().postedAt, "%Y-%m-%d %H:%M:%S") << " ["
                       << batch.front().threadId << "] ]] ";
                batch.front().message(stream);
                sink_->Write(stream);
            }
        }
    }

    std::unique_ptr<LogWrap> sink_;
    std::atomic<bool> running_{true};
    std::mutex mutex_;
    std::deque<Entry> queue_;
    std::thread worker_;
};

}  // namespace camclock::bench
