#include "util/SortedWindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace camclock::test {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

TEST(SortedWindow, NotANumberStandsBehindEverything) {
    EXPECT_TRUE(SortedWindow::Less(std::numeric_limits<double>::infinity(), kNan));
    EXPECT_FALSE(SortedWindow::Less(kNan, -1.0));
    EXPECT_FALSE(SortedWindow::Less(kNan, kNan));
    EXPECT_FALSE(SortedWindow::Less(0.0, -0.0));
}

TEST(SortedWindow, NotANumbersCanBeRemovedAgain) {
    std::array<double, 4> storage{};
    SortedWindow window(storage.data());
    window.Insert(kNan);
    window.Insert(1.0);
    window.Insert(kNan);
    EXPECT_EQ(window[0], 1.0);
    EXPECT_TRUE(std::isnan(window[2]));
    window.Remove(kNan);
    window.Replace(kNan, 0.0);
    ASSERT_EQ(window.Size(), 2U);
    EXPECT_EQ(window[0], 0.0);
    EXPECT_EQ(window[1], 1.0);
}

TEST(SortedWindow, AgreesWithAPlainSortOverRandomOperations) {
    constexpr unsigned kSeed = 20261;
    SCOPED_TRACE(::testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    std::array<double, 40> storage{};
    SortedWindow window(storage.data());
    std::vector<double> reference;
    std::uniform_int_distribution<int> value(0, 15);  // few values, so that many are equal
    for (int i = 0; i < 20'000; ++i) {
        const auto operation = random() % 3;
        const double fresh = value(random);
        if (operation == 0 && reference.size() < storage.size()) {
            window.Insert(fresh);
            reference.push_back(fresh);
        } else if (operation == 1 && !reference.empty()) {
            const std::size_t victim = random() % reference.size();
            window.Remove(reference[victim]);
            reference.erase(reference.begin() + static_cast<std::ptrdiff_t>(victim));
        } else if (!reference.empty()) {
            const std::size_t victim = random() % reference.size();
            window.Replace(reference[victim], fresh);
            reference[victim] = fresh;
        }
        std::sort(reference.begin(), reference.end());
        ASSERT_EQ(window.Size(), reference.size());
        for (std::size_t k = 0; k < reference.size(); ++k)
            ASSERT_EQ(window[k], reference[k]) << "operation " << i;
        ASSERT_EQ(window.CountBelow(fresh),
                  static_cast<std::size_t>(std::lower_bound(reference.begin(), reference.end(), fresh) -
                                           reference.begin()));
        if (reference.size() >= 2) {
            const std::size_t victim = random() % reference.size();
            std::vector<double> without = reference;
            without.erase(without.begin() + static_cast<std::ptrdiff_t>(victim));
            const std::size_t k = random() % without.size();
            ASSERT_EQ(window.SelectWithout(reference[victim], k), without[k]);
        }
    }
}

}  // namespace
}  // namespace camclock::test
