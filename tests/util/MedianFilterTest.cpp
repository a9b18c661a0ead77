#include "util/MedianFilter.h"

#include "support/NamedCases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace camclock::test {
namespace {

using Values = std::vector<double>;

struct MedianCase {
    const char* name;
    Values source;
    int maskSize;
    int status;
    Values expected;
};

class MedianFilterTable : public ::testing::TestWithParam<MedianCase> {};

TEST_P(MedianFilterTable, GivesTheOutputs) {
    const MedianCase& c = GetParam();
    Values destination(c.source.size(), -1.0);
    const int length = static_cast<int>(c.source.size());
    EXPECT_EQ(MedianFilter(c.source.data(), destination.data(), length, c.maskSize), c.status);
    EXPECT_EQ(destination, c.expected);

    Values inPlace = c.source;
    EXPECT_EQ(MedianFilter(inPlace.data(), inPlace.data(), length, c.maskSize), c.status);
    EXPECT_EQ(inPlace, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    MedianFilter, MedianFilterTable,
    ::testing::Values(MedianCase{"MaskOfThree", {5, 1, 9}, 3, 0, {5, 5, 9}},
                      MedianCase{"EvenMaskIsReducedByOne", {3, 1, 2, 10}, 4, 5, {3, 2, 2, 10}},
                      MedianCase{"TwoValuesStayAsTheyAre", {7, 8}, 2, 5, {7, 8}},
                      MedianCase{"TwoValuesWithAnOddMask", {8, 7}, 3, 0, {8, 7}},
                      MedianCase{"OneValue", {4}, 9, 0, {4}},
                      MedianCase{"MaskOfOneCopies", {5, 1, 9}, 1, 0, {5, 1, 9}},
                      MedianCase{"MaskOfTwoCopies", {5, 1, 9}, 2, 5, {5, 1, 9}},
                      MedianCase{"MaskLongerThanTheArray", {4, 2, 6}, 5, 0, {4, 4, 6}},
                      MedianCase{"LargestMask", {4, 2, 6}, (std::numeric_limits<int>::max)(), 0, {4, 4, 6}},
                      MedianCase{
                          "LargestEvenMask", {4, 2, 6}, (std::numeric_limits<int>::max)() - 1, 5, {4, 4, 6}},
                      MedianCase{"DuplicatesCountEach", {2, 2, 1, 1, 1}, 5, 0, {2, 2, 1, 1, 1}},
                      MedianCase{"MaskOfFive", {9, 1, 8, 2, 7, 3}, 5, 0, {9, 8, 7, 3, 3, 3}}),
    CaseName());

TEST(MedianFilter, RefusesNullArraysBeforeBadSizes) {
    double value = 3.0;
    EXPECT_EQ(MedianFilter(nullptr, &value, 1, 1), -8);
    EXPECT_EQ(MedianFilter(&value, nullptr, 1, 1), -8);
    EXPECT_EQ(MedianFilter(nullptr, nullptr, 0, 0), -8);
    EXPECT_EQ(value, 3.0);
}

TEST(MedianFilter, RefusesBadSizesAndWritesNothing) {
    constexpr int kMin = (std::numeric_limits<int>::min)();
    const double source = 1.0;
    double destination = 3.0;
    EXPECT_EQ(MedianFilter(&source, &destination, 0, 3), -6);
    EXPECT_EQ(MedianFilter(&source, &destination, -1, 3), -6);
    EXPECT_EQ(MedianFilter(&source, &destination, kMin, 3), -6);
    EXPECT_EQ(MedianFilter(&source, &destination, 1, 0), -6);
    EXPECT_EQ(MedianFilter(&source, &destination, 1, kMin), -6);
    EXPECT_EQ(destination, 3.0);
}

/// Word by word: every window is built with its replicated ends and sorted.
Values Reference(const Values& source, int maskSize) {
    const int mask = maskSize % 2 == 0 ? maskSize - 1 : maskSize;
    const int length = static_cast<int>(source.size());
    if (mask == 1 || length < 3)
        return source;
    Values result;
    for (int i = 0; i < length; ++i) {
        Values window;
        for (int k = i - (mask - 1) / 2; k <= i + (mask - 1) / 2; ++k)
            window.push_back(source[static_cast<std::size_t>(std::clamp(k, 0, length - 1))]);
        std::sort(window.begin(), window.end());
        result.push_back(window[window.size() / 2]);
    }
    return result;
}

TEST(MedianFilter, AgreesWithSortedWindowsOverRandomInput) {
    constexpr unsigned kSeed = 8101;
    SCOPED_TRACE(::testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    for (int round = 0; round < 5'000; ++round) {
        // Up to 90 values: below and above what fits the stack. Few different values in every other round.
        Values source(1 + random() % 90);
        const bool manyEqual = round % 2 == 0;
        for (double& value : source) {
            value = manyEqual ? static_cast<double>(static_cast<int>(random() % 7) - 3)
                              : static_cast<double>(static_cast<std::int32_t>(random())) / 16.0;
        }
        const int maskSize = static_cast<int>(1 + random() % 130);
        const int length = static_cast<int>(source.size());
        const Values expected = Reference(source, maskSize);
        const int status = maskSize % 2 == 0 ? 5 : 0;

        Values destination(source.size());
        ASSERT_EQ(MedianFilter(source.data(), destination.data(), length, maskSize), status);
        ASSERT_EQ(destination, expected)
            << "round " << round << ", length " << length << ", mask " << maskSize;

        ASSERT_EQ(MedianFilter(source.data(), source.data(), length, maskSize), status);
        ASSERT_EQ(source, expected) << "in place, round " << round;
    }
}

}  // namespace
}  // namespace camclock::test
