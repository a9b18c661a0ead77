#pragma once

#include "support/CategoryTap.h"
#include "support/WaitableList.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace camclock::test {

/// The messages of several log4cpp categories in the one order in which they were written, while it lives
/// (see `CategoryTap`).
class MessageRecorder {
public:
    using Hook = std::function<void(const std::string& message)>;

    /// `hook` runs on the logging thread, before the message counts as written.
    explicit MessageRecorder(std::initializer_list<const char*> categories, Hook hook = {})
        : hook_(std::move(hook)) {
        for (const char* const name : categories) {
            taps_.emplace_back(log4cpp::Category::getInstance(name),
                               [this](const log4cpp::LoggingEvent& event) { Record(event.message); });
        }
    }

    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    std::vector<std::string> All() const { return messages_.All(); }

    /// The messages so far, which are forgotten.
    std::vector<std::string> Drain() { return messages_.Drain(); }

    std::size_t Count(const std::string& message) const { return CountIn(All(), message); }

    /// Waits until `message` has been written `times` times; false when the deadline passes first.
    bool WaitFor(const std::string& message, std::size_t times = 1) const {
        return messages_.WaitUntil(
            [&](const std::vector<std::string>& all) { return CountIn(all, message) >= times; });
    }

private:
    static std::size_t CountIn(const std::vector<std::string>& all, const std::string& message) {
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
    }

    void Record(const std::string& message) {
        if (hook_)
            hook_(message);
        messages_.Append(message);
    }

    Hook hook_;
    WaitableList<std::string> messages_;
    std::list<CategoryTap> taps_;  // last: what they write to is made before them and outlives them
};

}  // namespace camclock::test
