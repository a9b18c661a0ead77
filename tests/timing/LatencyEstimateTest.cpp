#include "timing/StreamFixture.h"

#include "support/NamedCases.h"

namespace camclock::test {
namespace {

class LatencyEstimate : public StreamFixture {
protected:
    LatencyEstimate() {
        stream_->DoTimeFiltering(true);
        stream_->DoEstimation(true);
    }

    void Synchronise() { stream_->UpdateSyncInfo(Report(0)); }

    /// The next frame, 40 ms after the last, received `latency` after its capture; the camera's clock is
    /// right. Without probing, `D` is then the estimate.
    std::int64_t DAfter(Ticks latency) {
        const int n = frames_++;
        Feed(static_cast<std::uint32_t>(3'600 * n), kStart + milliseconds(40 * n) + latency);
        return camera_.GetD().count();
    }

private:
    int frames_ = 0;
};

TEST_F(LatencyEstimate, WithoutAReportTheLatencyIsNothing) {
    EXPECT_EQ(DAfter(milliseconds(100)), -30);  // the time of reception stands in for the capture
    EXPECT_EQ(DAfter(milliseconds(0)), -30);
    stream_->SetMeanLatency(milliseconds(0));
    EXPECT_EQ(DAfter(milliseconds(500)), 0);
    EXPECT_EQ(cameraLog_.Direct().size(), 2U);
}

TEST_F(LatencyEstimate, TheMeanLatencyGivesNoDifference) {
    Synchronise();
    EXPECT_EQ(DAfter(milliseconds(30)), 0);
}

TEST_F(LatencyEstimate, IsTheMedianOfAllSamplesOrOfAllButTheOldest) {
    Synchronise();
    EXPECT_EQ(DAfter(milliseconds(100)), 70);  // 100
    EXPECT_EQ(DAfter(milliseconds(10)), -20);  // the newer one
    EXPECT_EQ(DAfter(milliseconds(50)), 20);   // of 100, 10, 50
    EXPECT_EQ(DAfter(milliseconds(20)), -10);  // of 10, 50, 20
    EXPECT_EQ(DAfter(milliseconds(90)), 20);   // of all five
}

TEST_F(LatencyEstimate, SamplesBeforeTheFirstReportDoNotCount) {
    for (int i = 0; i < 10; ++i)
        DAfter(milliseconds(500));
    Synchronise();
    EXPECT_EQ(DAfter(milliseconds(70)), 40);
}

TEST_F(LatencyEstimate, The52ndSampleDropsTheOldest) {
    Synchronise();
    for (int i = 0; i < 26; ++i)
        DAfter(milliseconds(10));
    for (int i = 0; i < 24; ++i)
        DAfter(milliseconds(20));
    EXPECT_EQ(DAfter(milliseconds(20)), -20);  // 26 times 10, 25 times 20
    EXPECT_EQ(DAfter(milliseconds(20)), -10);  // 25 times 10, 26 times 20
}

struct LatencyCase {
    const char* name;
    std::int64_t latency_ticks;
    std::int64_t D_ms;
};

class LatencyTruncation : public StreamFixture, public ::testing::WithParamInterface<LatencyCase> {};

TEST_P(LatencyTruncation, IsTowardZero) {
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
    stream_->SetMeanLatency(milliseconds(0));
    stream_->UpdateSyncInfo(Report(0));
    Feed(0, kStart + Ticks(GetParam().latency_ticks));
    EXPECT_EQ(camera_.GetD().count(), GetParam().D_ms);
}

INSTANTIATE_TEST_SUITE_P(LatencyEstimate, LatencyTruncation,
                         ::testing::Values(LatencyCase{"JustUnderAMillisecond", 9'999, 0},
                                           LatencyCase{"AMillisecond", 10'000, 1},
                                           LatencyCase{"OneAndAHalf", 15'000, 1},
                                           LatencyCase{"JustUnderAMillisecondNegative", -9'999, 0},
                                           LatencyCase{"AMillisecondNegative", -10'000, -1},
                                           LatencyCase{"OneAndAHalfNegative", -15'000, -1},
                                           LatencyCase{"AnHourNegative", -36'000'000'000, -3'600'000}),
                         CaseName());

TEST_F(LatencyEstimate, NeedsBothSwitches) {
    Synchronise();
    camera_.SetD(milliseconds(-5));
    stream_->DoEstimation(false);
    EXPECT_EQ(DAfter(milliseconds(100)), -5);
    stream_->DoEstimation(true);
    stream_->DoTimeFiltering(false);
    EXPECT_EQ(DAfter(milliseconds(100)), -5);
    stream_->DoTimeFiltering(true);
    EXPECT_EQ(DAfter(milliseconds(100)), 70);
}

TEST_F(LatencyEstimate, TheNewDifferenceServesTheNextPacket) {
    Synchronise();
    DAfter(milliseconds(50));
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), kStart);
    DAfter(milliseconds(50));
    EXPECT_EQ(stream_->GetCurrentTOC_Host(), kStart + milliseconds(60));
}

TEST_F(LatencyEstimate, WithAReportTheEstimateBecomesTheExpectedDifference) {
    Synchronise();
    DAfter(milliseconds(42));
    DAfter(milliseconds(43));
    camera_.SetStablePtst0(kStart, false);  // refused: the first report has locked the origin
    ASSERT_TRUE(cameraLog_.WaitForDeferred(2));
    EXPECT_EQ(cameraLog_.Deferred(),
              (Lines{"New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: true",
                     "Time probe has not been created. Differnece estimate falls back to "
                     "expected value of: 12[ms]"}));
}

TEST_F(LatencyEstimate, WithoutAReportNoDifferenceIsExpected) {
    DAfter(milliseconds(42));
    camera_.SetStablePtst0(kStart, false);
    ASSERT_TRUE(cameraLog_.WaitForDeferred(2));
    EXPECT_EQ(cameraLog_.Deferred(),
              (Lines{"New stablePts T0 set: 2023-11-14 22:13:20.042 RTCP sync: false",
                     "New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: false"}));
}

TEST_F(LatencyEstimate, SetMeanLatencyIsToldAndServesTheNextEstimate) {
    Synchronise();
    EXPECT_EQ(DAfter(milliseconds(50)), 20);
    stream_->SetMeanLatency(milliseconds(45));
    EXPECT_EQ(camera_.GetD().count(), 20);
    EXPECT_EQ(DAfter(milliseconds(50)), 5);
    stream_->SetMeanLatency(milliseconds(-7));
    EXPECT_EQ(DAfter(milliseconds(50)), 57);
    EXPECT_EQ(StreamDirect(), (Lines{"S7  Initializing mean latency [ms] with: 45",
                                     "S7  Initializing mean latency [ms] with: -7"}));
}

TEST_F(LatencyEstimate, ExtremeMeanLatenciesWrapAround) {
    Synchronise();
    stream_->SetMeanLatency((milliseconds::min)());
    EXPECT_EQ(DAfter(milliseconds(1)), kMin64 + 1);
    stream_->SetMeanLatency((milliseconds::max)());
    EXPECT_EQ(DAfter(milliseconds(1)), kMin64 + 2);
    EXPECT_EQ(StreamDirect()[0], "S7  Initializing mean latency [ms] with: -9223372036854775808");
}

TEST_F(LatencyEstimate, ExtremeReceptionsWrapAround) {
    Synchronise();
    Feed(0, kNotYetSet);  // min - kStart wraps around to 2^63 - 17 * 10^15 ticks
    EXPECT_EQ(camera_.GetD().count(), 920'637'203'685'477 - 30);
}

TEST_F(LatencyEstimate, EstimatesAreInitializedWithoutFilteringOrWithoutAProbe) {
    EXPECT_TRUE(stream_->TimeEstimatesInitialized());
    stream_->DoTimeFiltering(false);
    EXPECT_TRUE(stream_->TimeEstimatesInitialized());
}

// With a probe, that is between UseICMP and CloseTimeProbing; nothing is probed before a difference is
// expected, and without a report none is.
TEST_F(LatencyEstimate, ProbingMessagePrintsLatencyLessD) {
    camera_.UseICMP("127.0.0.1", seconds(3'600), "", false);
    camera_.SetD(milliseconds(250));
    for (int i = 0; i < 201; ++i)
        EXPECT_EQ(DAfter(milliseconds(0)), 250);  // D is the probe's
    const std::string told = "S7 \tStream median latency estimate [ms]: -250\n"
                             "\tD_hat: -30 [ms]\n"
                             "\tD: 250 [ms]\n"
                             "\tD - D_hat: 280 [ms]\n";
    Lines messages;
    for (const std::string& message : StreamDeferredButTraces()) {
        if (message.find("median latency") != std::string::npos)
            messages.push_back(message);
    }
    EXPECT_EQ(messages, (Lines{told, told, told}));  // on estimates 1, 101 and 201
    camera_.CloseTimeProbing();
    EXPECT_EQ(DAfter(milliseconds(0)), -30);
}

TEST_F(LatencyEstimate, WithAProbeEstimatesAreInitializedOnceItHasSettled) {
    camera_.UseICMP("127.0.0.1", seconds(3'600), "", false);
    EXPECT_FALSE(stream_->TimeEstimatesInitialized());
    stream_->DoTimeFiltering(false);
    EXPECT_TRUE(stream_->TimeEstimatesInitialized());
    stream_->DoTimeFiltering(true);
    camera_.CloseTimeProbing();
    EXPECT_TRUE(stream_->TimeEstimatesInitialized());
}

using LatencyEstimateAboveInfo = SilentStreamFixture;

TEST_F(LatencyEstimateAboveInfo, SetsTheMeanLatencyAndWritesNothing) {
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
    stream_->SetMeanLatency(milliseconds(-9));
    stream_->UpdateTiming(Packet(0, kStart), MediaPacket::kFrameP);
    EXPECT_EQ(camera_.GetD().count(), 9);
    EXPECT_TRUE(streamLog_.Events().empty());
}

}  // namespace
}  // namespace camclock::test
