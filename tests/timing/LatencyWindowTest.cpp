#include "timing/LatencyWindow.h"

#include "util/MedianFilter.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace camclock::test {
namespace {

TEST(LatencyWindow, GivesTheKernelsOutputInTheMiddle) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> latency_us(seed % 2 == 0 ? -3 : -100'000,
                                                      seed % 2 == 0 ? 3 : 900'000);
        LatencyWindow window;
        std::vector<double> samples;
        for (int n = 1; n <= 200; ++n) {
            const double sample = latency_us(random);
            window.Append(sample);
            samples.push_back(sample);
            if (samples.size() > 51)
                samples.erase(samples.begin());
            std::array<double, 51> output{};
            const int count = static_cast<int>(samples.size());
            const int status = MedianFilter(samples.data(), output.data(), count, count);
            ASSERT_EQ(status, count % 2 == 0 ? kMedianEvenMask : kMedianOk);
            ASSERT_EQ(window.Median(), output[samples.size() / 2]) << "sample " << n;
        }
    }
}

TEST(LatencyWindow, AnEvenNumberLeavesTheOldestOut) {
    LatencyWindow window;
    window.Append(100.0);
    EXPECT_EQ(window.Median(), 100.0);
    window.Append(10.0);
    EXPECT_EQ(window.Median(), 10.0);
    window.Append(50.0);
    EXPECT_EQ(window.Median(), 50.0);
    window.Append(20.0);
    EXPECT_EQ(window.Median(), 20.0);
}

TEST(LatencyWindow, The52ndSampleDropsTheOldest) {
    LatencyWindow window;
    for (int i = 0; i < 26; ++i)
        window.Append(10.0);
    for (int i = 0; i < 25; ++i)
        window.Append(20.0);
    EXPECT_EQ(window.Median(), 10.0);
    window.Append(20.0);
    EXPECT_EQ(window.Median(), 20.0);
}

}  // namespace
}  // namespace camclock::test
