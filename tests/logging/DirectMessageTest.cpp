#include "logging/DirectMessage.h"

#include "support/CapturingAppender.h"
#include "support/CategoryTap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace camclock::test {
namespace {

log4cpp::Category& TestCategory() {
    return log4cpp::Category::getInstance("Test.DirectMessage");
}

TEST(DirectMessage, IsOneEventAtInfo) {
    CapturingAppender log(TestCategory());
    ASSERT_TRUE(InfoEnabled(TestCategory()));
    WriteInfo(TestCategory(), "first\nand its second line");
    WriteInfo(TestCategory(), "second");
    const std::vector<CapturedEvent> events = log.Events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].message, "first\nand its second line");
    EXPECT_EQ(events[0].category, "Test.DirectMessage");
    EXPECT_EQ(events[0].priority, 600);
    EXPECT_EQ(events[1].message, "second");
}

// log4cpp emits the message from a destructor, out of which nothing can be thrown.
TEST(DirectMessageDeathTest, AnAppenderThatThrowsEndsTheProcess) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            const CategoryTap tap(TestCategory(), [](const log4cpp::LoggingEvent&) {
                throw std::runtime_error("an appender that throws");
            });
            try {
                WriteInfo(TestCategory(), "text");
            } catch (const std::runtime_error&) {
                _Exit(0);
            }
        },
        "an appender that throws");
}

TEST(DirectMessage, CategoryAboveInfoWantsNone) {
    CapturingAppender log(TestCategory(), log4cpp::Priority::NOTICE);
    EXPECT_FALSE(InfoEnabled(TestCategory()));
    WriteInfo(TestCategory(), "unwanted");
    EXPECT_TRUE(log.Events().empty());
}

}  // namespace
}  // namespace camclock::test
