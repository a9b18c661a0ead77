#pragma once

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace camclock::test {

/// The messages of several log4cpp categories in the one order in which they were written. While it lives the
/// categories take INFO and pass nothing on. Make it before the objects that log.
class MessageRecorder {
public:
    using Hook = std::function<void(const std::string& message)>;

    /// `hook` runs on the logging thread, before the message counts as written.
    explicit MessageRecorder(std::initializer_list<const char*> categories, Hook hook = {})
        : appender_(std::move(hook)) {
        for (const char* const name : categories) {
            log4cpp::Category& category = log4cpp::Category::getInstance(name);
            saved_.push_back({&category, category.getPriority(), category.getAdditivity()});
            category.addAppender(appender_);
            category.setAdditivity(false);
            category.setPriority(log4cpp::Priority::INFO);
        }
    }

    ~MessageRecorder() {
        for (const Saved& saved : saved_) {
            saved.category->setPriority(saved.priority);
            saved.category->setAdditivity(saved.additivity);
            saved.category->removeAppender(&appender_);
        }
    }

    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    std::vector<std::string> All() const { return appender_.Take(false); }

    /// The messages so far, which are forgotten.
    std::vector<std::string> Drain() { return appender_.Take(true); }

    std::size_t Count(const std::string& message) const {
        const std::vector<std::string> all = All();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
    }

    /// Waits until `message` has been written `times` times; false when that takes more than 30 s.
    bool WaitFor(const std::string& message, std::ptrdiff_t times = 1) const {
        return appender_.WaitFor(message, times);
    }

private:
    class Appender : public log4cpp::AppenderSkeleton {
    public:
        explicit Appender(Hook hook)
            : AppenderSkeleton("message recorder")
            , hook_(std::move(hook)) {}
        void close() override {}
        bool requiresLayout() const override { return false; }
        void setLayout(log4cpp::Layout*) override {}

        std::vector<std::string> Take(bool forget) const {
            const std::lock_guard<std::mutex> guard(mutex_);
            return forget ? std::exchange(messages_, {}) : messages_;
        }

        bool WaitFor(const std::string& message, std::ptrdiff_t times) const {
            std::unique_lock<std::mutex> lock(mutex_);
            return written_.wait_for(lock, std::chrono::seconds(30), [&] {
                return std::count(messages_.begin(), messages_.end(), message) >= times;
            });
        }

    protected:
        void _append(const log4cpp::LoggingEvent& event) override {
            if (hook_)
                hook_(event.message);
            {
                const std::lock_guard<std::mutex> guard(mutex_);
                messages_.push_back(event.message);
            }
            written_.notify_all();
        }

    private:
        Hook hook_;
        mutable std::mutex mutex_;
        mutable std::condition_variable written_;
        mutable std::vector<std::string> messages_;  // guarded by mutex_
    };

    struct Saved {
        log4cpp::Category* category;
        log4cpp::Priority::Value priority;
        bool additivity;
    };

    Appender appender_;
    std::vector<Saved> saved_;
};

}  // namespace camclock::test
