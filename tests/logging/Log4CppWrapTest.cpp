#include "logging/Log4CppWrap.h"

#include "logging/AsynchronousLog.h"
#include "support/CapturingAppender.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>

namespace camclock::test {
namespace {

log4cpp::Category& TestCategory() {
    return log4cpp::Category::getInstance("Test.Log4CppWrap");
}

TEST(Log4CppWrap, WritesTheWholeTextAsOneEventAtInfo) {
    CapturingAppender log(TestCategory());
    std::stringstream message;
    message << "a line\n\twith another, and 100 %s";
    Log4CppWrap(TestCategory()).Write(message);
    const std::vector<CapturedEvent> events = log.Events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].message, "a line\n\twith another, and 100 %s");
    EXPECT_EQ(events[0].category, "Test.Log4CppWrap");
    EXPECT_EQ(events[0].priority, 600);
}

TEST(Log4CppWrap, WritesNothingAboveInfoThoughTheCallablesRun) {
    CapturingAppender capture(TestCategory(), log4cpp::Priority::WARN);
    AsynchronousLog log(new Log4CppWrap(TestCategory()));
    const auto ran = std::make_shared<std::promise<void>>();
    std::future<void> done = ran->get_future();
    log.Post([](std::stringstream& out) { out << "first"; });
    log.Post([ran](std::stringstream& out) {
        out << "second";
        ran->set_value();
    });
    ASSERT_EQ(done.wait_for(kDeadline), std::future_status::ready);
    EXPECT_TRUE(capture.Events().empty());
}

}  // namespace
}  // namespace camclock::test
