#include "logging/Categories.h"

#include <log4cpp/Category.hh>

#include <gtest/gtest.h>

namespace camclock::test {
namespace {

TEST(Categories, HaveTheirNames) {
    EXPECT_EQ(categories::TimeFilter().getName(), "RTSP.TimeFilter");
    EXPECT_EQ(categories::TimeFilterInstance().getName(), "RTSP.TimeFilterInstance");
    EXPECT_EQ(categories::TimeProbe().getName(), "RTSP.TimeProbe");
    EXPECT_EQ(categories::RawSocket().getName(), "RTSP.RawSocket");
}

TEST(Categories, AreThoseThatTheApplicationGetsByName) {
    EXPECT_EQ(&categories::TimeFilter(), &log4cpp::Category::getInstance("RTSP.TimeFilter"));
    EXPECT_EQ(&categories::TimeFilter(), &categories::TimeFilter());
}

}  // namespace
}  // namespace camclock::test
