#include <camclock/Receiver.h>

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <mutex>
#include <utility>

namespace camclock::receiver {
namespace {

using OnMessage = std::function<void(const std::string& category, const std::string& text)>;

/// Shows what the libraries log to whoever listens. log4cpp owns it, for as long as the process runs.
class Listener : public log4cpp::AppenderSkeleton {
public:
    Listener()
        : AppenderSkeleton("camclock::receiver::OnLogMessage") {}

    void Set(OnMessage onMessage) {
        const std::lock_guard<std::mutex> guard(mutex_);
        onMessage_ = std::move(onMessage);
    }

    void close() override {}
    bool reopen() override { return true; }
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* layout) override { delete layout; }

protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (onMessage_)
            onMessage_(event.categoryName, event.message);
    }

private:
    std::mutex mutex_;  // guards onMessage_, and its calls
    OnMessage onMessage_;
};

}  // namespace

void OnLogMessage(OnMessage onMessage) {
    // The parent of all categories that the libraries write to.
    static log4cpp::Category& category = log4cpp::Category::getInstance("RTSP");
    static Listener* const listener = [] {
        auto* made = new Listener;
        category.addAppender(made);
        category.setPriority(log4cpp::Priority::INFO);
        return made;
    }();
    listener->Set(std::move(onMessage));
}

}  // namespace camclock::receiver
