#pragma once

#include "support/Stamp.h"
#include "support/WaitableList.h"

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <cstddef>
#include <string>
#include <vector>

namespace camclock::test {

/// One event of a log4cpp category.
struct CapturedEvent {
    std::string message;
    std::string category;
    int priority;
};

/// Keeps the events of one log4cpp category while it lives: the category takes INFO (or the given priority),
/// passes nothing on to its parents, and is put back as it was at the end.
///
/// Make it before the objects that log: log4cpp's categories do not like their
/// priority to change while they are used.
class CapturingAppender {
public:
    explicit CapturingAppender(log4cpp::Category& category,
                               log4cpp::Priority::Value priority = log4cpp::Priority::INFO)
        : category_(category)
        , oldPriority_(category.getPriority())
        , oldAdditivity_(category.getAdditivity()) {
        category_.addAppender(appender_);
        category_.setAdditivity(false);
        category_.setPriority(priority);
    }

    ~CapturingAppender() {
        category_.setPriority(oldPriority_);
        category_.setAdditivity(oldAdditivity_);
        category_.removeAppender(&appender_);
    }

    CapturingAppender(const CapturingAppender&) = delete;
    CapturingAppender& operator=(const CapturingAppender&) = delete;

    /// Changes what the category takes; no other thread logs meanwhile.
    void SetPriority(log4cpp::Priority::Value priority) { category_.setPriority(priority); }

    std::vector<CapturedEvent> Events() const { return appender_.events.All(); }

    std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        for (const CapturedEvent& event : Events())
            messages.push_back(event.message);
        return messages;
    }

    /// The messages without a stamp, in their order: those that were written directly.
    std::vector<std::string> Direct() const {
        std::vector<std::string> messages;
        for (const CapturedEvent& event : Events()) {
            if (!HasStamp(event.message))
                messages.push_back(event.message);
        }
        return messages;
    }

    /// The messages with a stamp, in their order, the stamp taken off: those that an asynchronous log wrote.
    std::vector<std::string> Deferred() const { return Deferred(Events()); }

    /// Waits for the `count`-th event, direct or deferred.
    bool WaitFor(std::size_t count) const { return appender_.events.WaitFor(count); }

    /// Waits until `wanted(messages)` for the deferred messages, the stamp taken off.
    template <class Condition>
    bool WaitUntilDeferred(Condition wanted) const {
        return appender_.events.WaitUntil(
            [&](const std::vector<CapturedEvent>& events) { return wanted(Deferred(events)); });
    }

    /// Waits for the `count`-th deferred message.
    bool WaitForDeferred(std::size_t count) const {
        return WaitUntilDeferred(
            [count](const std::vector<std::string>& all) { return all.size() >= count; });
    }

private:
    class Appender : public log4cpp::AppenderSkeleton {
    public:
        Appender()
            : AppenderSkeleton("capturing appender") {}
        void close() override {}
        bool requiresLayout() const override { return false; }
        void setLayout(log4cpp::Layout*) override {}

        WaitableList<CapturedEvent> events;

    protected:
        void _append(const log4cpp::LoggingEvent& event) override {
            events.Append({event.message, event.categoryName, event.priority});
        }
    };

    static std::vector<std::string> Deferred(const std::vector<CapturedEvent>& events) {
        std::vector<std::string> messages;
        for (const CapturedEvent& event : events) {
            if (HasStamp(event.message))
                messages.push_back(WithoutStamp(event.message));
        }
        return messages;
    }

    log4cpp::Category& category_;
    log4cpp::Priority::Value oldPriority_;
    bool oldAdditivity_;
    Appender appender_;
};

}  // namespace camclock::test
