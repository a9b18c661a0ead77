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

constexpr char kName[] = "camclock::receiver::OnLogMessage";

/// Who is shown the messages. For as long as the process runs: its last ones come late.
struct Audience {
    std::mutex mutex;  // guards onMessage, and its calls
    OnMessage onMessage;
};

Audience& TheAudience() {
    static Audience& audience = *new Audience;
    return audience;
}

/// Hands on what the libraries log. log4cpp owns it, and may end it: an application that sets log4cpp up anew
/// removes the appenders that were there.
class Listener : public log4cpp::AppenderSkeleton {
public:
    Listener()
        : AppenderSkeleton(kName) {}

    void close() override {}
    bool reopen() override { return true; }
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* layout) override { delete layout; }

protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        Audience& audience = TheAudience();
        const std::lock_guard<std::mutex> guard(audience.mutex);
        if (audience.onMessage)
            audience.onMessage(event.categoryName, event.message);
    }
};

/// Listens at the parent of all categories that the libraries write to.
void Listen() {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    log4cpp::Category& category = log4cpp::Category::getInstance("RTSP");
    if (category.getAppender(kName) != nullptr)
        return;
    category.addAppender(new Listener);
    category.setPriority(log4cpp::Priority::INFO);
}

}  // namespace

void OnLogMessage(OnMessage onMessage) {
    if (onMessage)
        Listen();
    Audience& audience = TheAudience();
    const std::lock_guard<std::mutex> guard(audience.mutex);
    audience.onMessage = std::move(onMessage);
}

}  // namespace camclock::receiver
