#include "apps/camclock/views/Statistics.h"

#include "apps/camclock/views/StreamStatistics.h"

#include <gtest/gtest.h>

namespace camclock::app {
namespace {

TEST(Percentile, OfNoValuesIsZero) {
    EXPECT_EQ(Percentile({}, 0.5), 0.0);
}

TEST(Percentile, OfOneValueIsThatValue) {
    EXPECT_EQ(Percentile({7.0}, 0.0), 7.0);
    EXPECT_EQ(Percentile({7.0}, 0.5), 7.0);
    EXPECT_EQ(Percentile({7.0}, 1.0), 7.0);
}

TEST(Percentile, IsTheNearestRank) {
    const std::vector<double> values{50.0, 15.0, 40.0, 20.0, 35.0};
    EXPECT_EQ(Percentile(values, 0.05), 15.0);
    EXPECT_EQ(Percentile(values, 0.30), 20.0);
    EXPECT_EQ(Percentile(values, 0.40), 20.0);
    EXPECT_EQ(Percentile(values, 0.50), 35.0);
    EXPECT_EQ(Percentile(values, 1.00), 50.0);
}

TEST(Percentile, OfAHundredValuesIsTheValueOfThatRank) {
    std::vector<double> values;
    for (int i = 100; i > 0; --i)
        values.push_back(i);
    EXPECT_EQ(Percentile(values, 0.95), 95.0);
    EXPECT_EQ(Percentile(values, 0.99), 99.0);
}

TEST(RecentValues, KeepsTheNewestInOrder) {
    RecentValues values(3);
    EXPECT_TRUE(values.Newest(5).empty());
    values.Add(1);
    values.Add(2);
    EXPECT_EQ(values.Newest(5), (std::vector<double>{1, 2}));
    values.Add(3);
    values.Add(4);
    values.Add(5);
    EXPECT_EQ(values.Newest(5), (std::vector<double>{3, 4, 5}));
    EXPECT_EQ(values.Newest(2), (std::vector<double>{4, 5}));
    EXPECT_EQ(values.Size(), 3U);
}

FrameRow RowAt(std::int64_t TOR_ms, std::int64_t latency_ms, bool synced, receiver::Trust trust) {
    FrameRow row;
    row.frame.arrived_host = TimePoint(std::chrono::milliseconds(TOR_ms));
    row.frame.captured_host = TimePoint(std::chrono::milliseconds(TOR_ms - latency_ms));
    row.frame.captured_cam = row.frame.arrived_host + std::chrono::hours(synced ? 1 : 0);
    row.frame.rtp_ts = static_cast<std::uint32_t>(TOR_ms * 90);
    row.frame.bytes = 1'000;
    row.frame.trust = trust;
    return row;
}

TEST(StreamStatistics, HasNothingToTellBeforeTheFirstFrame) {
    const StreamStatistics statistics;
    EXPECT_EQ(statistics.Frames(), 0U);
    EXPECT_EQ(statistics.FrameRate(10), 0.0);
    EXPECT_EQ(statistics.Seconds(), 0.0);
    EXPECT_FALSE(statistics.GoodShare());
    EXPECT_FALSE(statistics.Latency_ms(0.5, 10));
}

TEST(StreamStatistics, CountsFramesAndTheirRate) {
    StreamStatistics statistics;
    for (int i = 0; i < 26; ++i)
        statistics.Add(RowAt(1'000 + 40 * i, 0, false, receiver::Trust::kGood));
    EXPECT_EQ(statistics.Frames(), 26U);
    EXPECT_DOUBLE_EQ(statistics.Seconds(), 1.0);
    EXPECT_DOUBLE_EQ(statistics.FrameRate(1'000), 25.0);
    EXPECT_DOUBLE_EQ(statistics.FrameRate(6), 25.0);
    EXPECT_DOUBLE_EQ(statistics.BitRate_kbit(6), 200.0);
    EXPECT_DOUBLE_EQ(statistics.Jitter_ms(), 0.0);
}

TEST(StreamStatistics, TrustAndLatencyAreThoseOfSyncedFrames) {
    StreamStatistics statistics;
    statistics.Add(RowAt(0, 900, false, receiver::Trust::kReplaced));
    EXPECT_FALSE(statistics.GoodShare());
    statistics.Add(RowAt(40, 10, true, receiver::Trust::kGood));
    statistics.Add(RowAt(80, 20, true, receiver::Trust::kGood));
    statistics.Add(RowAt(120, 30, true, receiver::Trust::kGood));
    statistics.Add(RowAt(160, 0, true, receiver::Trust::kReplaced));
    EXPECT_DOUBLE_EQ(*statistics.GoodShare(), 0.75);
    EXPECT_DOUBLE_EQ(*statistics.Latency_ms(0.5, 10), 10.0);
    EXPECT_DOUBLE_EQ(*statistics.Latency_ms(1.0, 10), 30.0);
    EXPECT_DOUBLE_EQ(*statistics.Latency_ms(1.0, 1), 0.0);
}

TEST(StreamStatistics, JitterIsASixteenthOfEachDeviationAndSkipsTheEndOfAnEpoch) {
    StreamStatistics statistics;
    statistics.Add(RowAt(0, 0, false, receiver::Trust::kArrivalOnly));
    FrameRow late = RowAt(56, 0, false, receiver::Trust::kArrivalOnly);
    late.frame.rtp_ts = 40 * 90;
    statistics.Add(late);
    EXPECT_DOUBLE_EQ(statistics.Jitter_ms(), 1.0);
    FrameRow another = RowAt(5'000, 0, false, receiver::Trust::kArrivalOnly);
    another.frame.epoch = 2;
    another.frame.rtp_ts = 7;
    statistics.Add(another);
    EXPECT_DOUBLE_EQ(statistics.Jitter_ms(), 1.0);
}

}  // namespace
}  // namespace camclock::app
