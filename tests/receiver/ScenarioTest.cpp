#include "receiver/Watched.h"

namespace camclock::receiver {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint64_t kFrames = 8'000;
constexpr double kGood_ms = 1.15;

sim::RtpCamera::Settings Lan(std::uint64_t seed = 1) {
    sim::RtpCamera::Settings settings;
    settings.seed = seed;
    return settings;
}

TEST(ReceiverScenario, NothingHappens) {
    Watched watched(Lan());
    watched.Run(kFrames);
    EXPECT_EQ(watched.frames.size(), kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_GT(watched.Count(Trust::kGood), 7'900U);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_NEAR(watched.PtsBeside_ms(), 320'000 * 20e-6, 50.0);
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
    const Statistics statistics = watched.stream->Snapshot();
    EXPECT_EQ(statistics.frames, kFrames);
    EXPECT_EQ(statistics.packets, watched.fedPackets);
    EXPECT_EQ(statistics.lost + statistics.late + statistics.malformed + statistics.foreign +
                  statistics.implausible,
              0U);
    EXPECT_NEAR(statistics.skew_ppm, 20.0, 1.0);
}

}  // namespace
}  // namespace camclock::receiver
