#include "logging/DirectMessage.h"

#include "support/CapturingAppender.h"

#include <gtest/gtest.h>

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

TEST(DirectMessage, CategoryAboveInfoWantsNone) {
    CapturingAppender log(TestCategory(), log4cpp::Priority::NOTICE);
    EXPECT_FALSE(InfoEnabled(TestCategory()));
    WriteInfo(TestCategory(), "unwanted");
    EXPECT_TRUE(log.Events().empty());
}

}  // namespace
}  // namespace camclock::test
