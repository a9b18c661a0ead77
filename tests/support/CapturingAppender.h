#pragma once

#include "support/CategoryTap.h"
#include "support/Stamp.h"
#include "support/WaitableList.h"

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

/// Keeps the events of one log4cpp category while it lives (see `CategoryTap`).
class CapturingAppender {
public:
    explicit CapturingAppender(log4cpp::Category& category,
                               log4cpp::Priority::Value priority = log4cpp::Priority::INFO)
        : tap_(
              category,
              [this](const log4cpp::LoggingEvent& event) {
                  events_.Append({event.message, event.categoryName, event.priority});
              },
              priority) {}

    CapturingAppender(const CapturingAppender&) = delete;
    CapturingAppender& operator=(const CapturingAppender&) = delete;

    /// Changes what the category takes; no other thread logs meanwhile.
    void SetPriority(log4cpp::Priority::Value priority) { tap_.SetPriority(priority); }

    std::vector<CapturedEvent> Events() const { return events_.All(); }

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
    bool WaitFor(std::size_t count) const { return events_.WaitFor(count); }

    /// Waits until `wanted(messages)` for the deferred messages, the stamp taken off.
    template <class Condition>
    bool WaitUntilDeferred(Condition wanted) const {
        return events_.WaitUntil(
            [&](const std::vector<CapturedEvent>& events) { return wanted(Deferred(events)); });
    }

    /// Waits for the `count`-th deferred message.
    bool WaitForDeferred(std::size_t count) const {
        return WaitUntilDeferred(
            [count](const std::vector<std::string>& all) { return all.size() >= count; });
    }

private:
    static std::vector<std::string> Deferred(const std::vector<CapturedEvent>& events) {
        std::vector<std::string> messages;
        for (const CapturedEvent& event : events) {
            if (HasStamp(event.message))
                messages.push_back(WithoutStamp(event.message));
        }
        return messages;
    }

    WaitableList<CapturedEvent> events_;
    CategoryTap tap_;  // last: what it writes to is made before it and outlives it
};

}  // namespace camclock::test
