#include "sim/SimulatedCamera.h"

#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

namespace camclock::test {
using namespace camclock::sim;  // NOLINT(google-build-using-namespace): the tests are about nothing else

namespace {

TEST(SimulatedCamera, RandomNumbersAreTheSameEverywhere) {
    Random random(42);
    EXPECT_EQ(random.Next(), 13679457532755275413U);
    EXPECT_EQ(random.Next(), 2949826092126892291U);
    Random exponential(42);
    std::vector<std::int64_t> samples;
    samples.reserve(5);
    for (int k = 0; k < 5; ++k)
        samples.push_back(exponential.Exponential(Ticks(1'000'000)).count());
    EXPECT_EQ(samples, (std::vector<std::int64_t>{298'992, 1'833'141, 1'277'974, 1'066'559, 3'269'375}));
}

TEST(SimulatedCamera, NetworkModelsHaveTheMedianThatTheyState) {
    for (const NetworkModel& model : {kLan, kBusyLan, kWifi, kWan}) {
        Random random(7);
        std::vector<Ticks> latencies;
        latencies.reserve(20'001);
        for (int k = 0; k < 20'001; ++k)
            latencies.push_back(model.Draw(random));
        std::sort(latencies.begin(), latencies.end());
        const double median_ms = static_cast<double>(latencies[10'000].count()) / 10'000.0;
        const double tolerance_ms = 0.03 * static_cast<double>(model.queueing.count()) / 10'000.0;
        EXPECT_NEAR(median_ms, model.Median_ms(), tolerance_ms) << model.name;
        const auto spikes =
            static_cast<double>(std::count_if(latencies.begin(), latencies.end(), [&](Ticks latency) {
                return latency >= model.base + model.spike;
            }));
        EXPECT_NEAR(spikes / 20'001.0,
                    1.0 -
                        model.ShareWithin(static_cast<double>((model.base + model.spike).count()) / 10'000.0),
                    0.005)
            << model.name;
    }
    EXPECT_NEAR(kLan.Median_ms(), 0.4396, 0.0001);
    EXPECT_NEAR(kBusyLan.Median_ms(), 1.9065, 0.0001);
    EXPECT_NEAR(kWifi.Median_ms(), 5.6228, 0.0001);
    EXPECT_NEAR(kWan.Median_ms(), 35.7101, 0.0001);
    EXPECT_EQ(kLan.MeanLatency().count(), 0);
    EXPECT_EQ(kBusyLan.MeanLatency().count(), 2);
    EXPECT_EQ(kWifi.MeanLatency().count(), 6);
    EXPECT_EQ(kWan.MeanLatency().count(), 36);
}

TEST(SimulatedCamera, SameSettingsGiveTheSameArrivals) {
    SimulatedCamera::Settings settings;
    settings.seed = 11;
    settings.network = kWifi;
    settings.lossChance = 0.1;
    settings.packetsOfKeyFrame = 5;
    SimulatedCamera one(settings);
    SimulatedCamera other(settings);
    for (int k = 0; k < 500; ++k) {
        const SimulatedCamera::Arrival a = one.Next();
        const SimulatedCamera::Arrival b = other.Next();
        ASSERT_EQ(a.at_host, b.at_host);
        ASSERT_EQ(a.capture_host, b.capture_host);
        ASSERT_EQ(a.packet != nullptr, b.packet != nullptr);
        if (a.packet) {
            ASSERT_EQ(a.packet->RTP_ts, b.packet->RTP_ts);
        }
    }
}

// The report's own mapping must lead to the truth, else the scenarios would measure the simulation.
TEST(SimulatedCamera, ReportsMapFramesToTheTimeOfTheCamerasClock) {
    SimulatedCamera::Settings settings;
    settings.offset = Ticks(-12'345'678'901);
    settings.drift_ppm = 100.0;
    settings.network = kLan;
    SimulatedCamera camera(settings);
    std::shared_ptr<SyncPoint> report;
    int frames = 0;
    while (frames < 1'000) {
        const SimulatedCamera::Arrival arrival = camera.Next();
        if (arrival.report) {
            report = arrival.report;
            const std::int64_t seconds = static_cast<std::int64_t>(report->SyncNTPmsw) - 2'208'988'800;
            const double fraction = static_cast<double>(report->SyncNTPlsw) / 4294967296.0 * 1e7;
            report->syncTime = TimePoint(Ticks(seconds * 10'000'000 + static_cast<std::int64_t>(fraction)));
            continue;
        }
        ++frames;
        const TimePoint TOC_cam = TimeFilterInstance::MapTime(report, arrival.packet->RTP_ts, 90'000.0);
        const auto error = static_cast<double>((TOC_cam - camera.CameraTime(arrival.capture_host)).count());
        ASSERT_NEAR(error, 0.0, 150.0) << "one tick of 90 kHz is 111 ticks of 100 ns";
    }
}

TEST(SimulatedCamera, ArrivesInTheOrderOfTimeWhateverTheDelivery) {
    for (const Delivery delivery :
         {Delivery::kInOrder, Delivery::kSortedByReceiver, Delivery::kAsTheyArrive}) {
        SimulatedCamera::Settings settings;
        settings.network = kWan;
        settings.delivery = delivery;
        SimulatedCamera camera(settings);
        TimePoint last = settings.start;
        std::uint64_t lastFrame = 0;
        int overtaken = 0;
        int receivedEarlier = 0;
        for (int k = 0; k < 5'000; ++k) {
            const SimulatedCamera::Arrival arrival = camera.Next();
            ASSERT_GE(arrival.at_host, last);
            last = arrival.at_host;
            if (!arrival.packet)
                continue;
            overtaken += arrival.frame < lastFrame ? 1 : 0;
            receivedEarlier += arrival.packet->TOR_host < arrival.at_host ? 1 : 0;
            lastFrame = arrival.frame;
        }
        EXPECT_EQ(overtaken > 0, delivery == Delivery::kAsTheyArrive);
        EXPECT_EQ(receivedEarlier > 0, delivery == Delivery::kSortedByReceiver);
    }
}

TEST(SimulatedCamera, RebootChangesSourceAndClockAndLeavesAGap) {
    SimulatedCamera::Settings settings;
    settings.reboots = {{Ticks(100'000'000), Ticks(200'000'000), Ticks(-5'000'000)}};
    SimulatedCamera camera(settings);
    std::map<std::uint32_t, int> framesOfSource;
    TimePoint last = settings.start;
    Ticks longestGap{};
    for (int k = 0; k < 700; ++k) {
        const SimulatedCamera::Arrival arrival = camera.Next();
        if (!arrival.packet)
            continue;
        ++framesOfSource[arrival.packet->SSRC];
        longestGap = (std::max)(longestGap, arrival.capture_host - last);
        last = arrival.capture_host;
    }
    EXPECT_EQ(framesOfSource.size(), 2U);
    EXPECT_EQ(longestGap.count(), 200'400'000);
    EXPECT_EQ((camera.CameraTime(last) - last).count(), -5'000'000);
}

}  // namespace
}  // namespace camclock::test
