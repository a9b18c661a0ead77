#include "logging/Text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>

namespace camclock::test {
namespace {

TEST(Text, PutsItsPartsOneAfterTheOther) {
    EXPECT_EQ(Text(), "");
    EXPECT_EQ(Text("D: ", std::int64_t{-7}, " [ms]", '\n', std::string("id"), std::string_view("view")),
              "D: -7 [ms]\nidview");
    EXPECT_EQ(Text(true, "/", false), "true/false");
    EXPECT_EQ(Text("at ", TimePoint(Ticks(1'420'000))), "at 1970-01-01 00:00:00.142");
}

TEST(Text, GrowsWithItsParts) {
    const std::string part(511, 'x');
    EXPECT_EQ(Text(part, 'y'), part + 'y');
    EXPECT_EQ(Text(part, "yz", part, std::int64_t{-1}, part, TimePoint{}),
              part + "yz" + part + "-1" + part + "1970-01-01 00:00:00.000");
}

TEST(Text, PrintWritesTheSameToAStream) {
    std::stringstream out;
    out << std::hex;
    Print(out, 255, " ", TimePoint(Ticks(-1)), " ", 0.5, std::string(1'000, 'x'));
    EXPECT_EQ(out.str(), "255 1970-01-01 00:00:00.000 0.5" + std::string(1'000, 'x'));
}

TEST(Text, WritesIntegersAsPlainDecimals) {
    EXPECT_EQ(Text((std::numeric_limits<std::int64_t>::min)()), "-9223372036854775808");
    EXPECT_EQ(Text((std::numeric_limits<std::uint64_t>::max)()), "18446744073709551615");
    EXPECT_EQ(Text((std::numeric_limits<std::int32_t>::min)()), "-2147483648");
    EXPECT_EQ(Text((std::numeric_limits<std::uint32_t>::max)()), "4294967295");
    EXPECT_EQ(Text(std::uint8_t{200}), "200");
}

TEST(Text, WritesDoublesAsAStreamDoesByDefault) {
    for (const double value :
         {0.0, -0.0, 1.0, 30.0, 0.1234567, 123456.5, 1234567.0, 1e10, -2.5e-7, 1e300, 0.0001, 0.00001,
          99999.95, 999999.5, std::numeric_limits<double>::infinity()}) {
        std::ostringstream expected;
        expected << value;
        EXPECT_EQ(Text(value), expected.str());
    }
    EXPECT_EQ(Text(0.1234567), "0.123457");
    EXPECT_EQ(Text(1234567.0), "1.23457e+06");
}

}  // namespace
}  // namespace camclock::test
