#include "apps/camclock/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace camclock::app {
namespace {

TEST(Printable, LeavesPlainTextAlone) {
    EXPECT_EQ(Printable(""), "");
    EXPECT_EQ(Printable("Not Found ±5 \xE2\x82\xAC \xF0\x9F\x93\xB7"),
              "Not Found ±5 \xE2\x82\xAC \xF0\x9F\x93\xB7");
}

TEST(Printable, EscapesWhatATerminalObeys) {
    EXPECT_EQ(Printable("a\x1b[2Jb\r\n\t\x7f"), "a\\x1b[2Jb\\x0d\\x0a\\x09\\x7f");
    EXPECT_EQ(Printable(std::string("\0", 1)), "\\x00");
    EXPECT_EQ(Printable("\xC2\x9B"
                        "31m"),
              "\\xc2\\x9b31m");  // CSI as one C1 character
}

TEST(Printable, EscapesWhatIsNoUtf8) {
    EXPECT_EQ(Printable("\xFFz"), "\\xffz");
    EXPECT_EQ(Printable("\xC3"), "\\xc3");
    EXPECT_EQ(Printable("\xC0\x9B"), "\\xc0\\x9b");           // overlong
    EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");  // a surrogate
    EXPECT_EQ(Printable("\x9B"), "\\x9b");
}

}  // namespace
}  // namespace camclock::app
