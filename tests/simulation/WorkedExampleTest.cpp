#include "support/ManualCounter.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <memory>

// The numbers of the worked example in docs/clocks.md.

namespace camclock::test {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kCamera_s = 1'768'467'476;          // 2026-01-15 08:57:56 UTC, camera's clock
constexpr TimePoint kHost{Ticks(17'684'712'000'000'000)};  // 2026-01-15 10:00:00 UTC, host's clock

TimePoint Camera(std::int64_t microseconds) {
    return TimePoint(Ticks(kCamera_s * 10'000'000 + microseconds * 10));
}

std::shared_ptr<TimingData> Frame(std::uint32_t RTP_ts, Ticks reception) {
    auto frame = std::make_shared<TimingData>();
    frame->RTP_ts = RTP_ts;
    frame->RTPFreq = 90'000;
    frame->TOR_host = kHost + reception;
    return frame;
}

TEST(WorkedExample, IsAsDocumented) {
    const ManualCounter counter(kHost);
    TimeFilter camera;
    const std::shared_ptr<TimeFilterInstance> stream = camera.CreateNewTimeFilter();
    stream->DoTimeFiltering(true);
    stream->DoEstimation(true);
    stream->SetMeanLatency(4ms);

    auto report = std::make_shared<SyncPoint>();
    report->SyncRTP = 1'000'000;
    report->SyncNTPmsw = 3'977'456'276;
    report->SyncNTPlsw = 0x8000'0000;
    stream->UpdateSyncInfo(report);
    EXPECT_EQ(report->syncTime, Camera(499'999));

    const auto first = Frame(1'003'600, 44ms);
    EXPECT_EQ(stream->GetTOC_Cam(first->RTP_ts, first->RTPFreq, first->TOR_host), Camera(539'999));
    stream->UpdateTiming(first, MediaPacket::kFrameI);
    EXPECT_EQ(stream->GetCurrentTOC_Host(), Camera(539'999)) << "D was still 0";
    EXPECT_EQ(stream->GetCurrentEstimationQuality(), MediaPacket::kTrustGood);
    EXPECT_EQ(camera.GetD(), 3'723'500ms);

    stream->UpdateTiming(Frame(1'007'200, Ticks(843'000)), MediaPacket::kFrameP);
    EXPECT_EQ(stream->GetCurrentTOC_Host(), kHost + Ticks(799'990));
    EXPECT_EQ(stream->GetCurrentEstimationQuality(), MediaPacket::kTrustGood);
    EXPECT_EQ(camera.GetD(), 3'723'500ms);

    stream->UpdateTiming(Frame(1'010'800, Ticks(1'199'000)), MediaPacket::kFrameP);
    EXPECT_EQ(stream->GetCurrentTOC_Host(), kHost + Ticks(1'199'000))
        << "the estimate lay after the reception";
    EXPECT_EQ(stream->GetCurrentEstimationQuality(), MediaPacket::kTrustBad);
}

}  // namespace
}  // namespace camclock::test
