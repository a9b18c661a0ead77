#include "simulation/Receiver.h"

#include <array>
#include <thread>

namespace camclock::test {
namespace {

using namespace std::chrono_literals;

std::shared_ptr<TimeFilterInstance> NewStream(TimeFilter& filter, const NetworkModel& network) {
    std::shared_ptr<TimeFilterInstance> stream = filter.CreateNewTimeFilter();
    stream->SetMeanLatency(network.MeanLatency());
    stream->DoTimeFiltering(true);
    stream->DoEstimation(true);
    return stream;
}

/// One call for all that arrives until `end`; the calls from `settled` on are returned.
std::vector<Call> Drive(SimulatedCamera& camera, TimeFilter& filter, TimeFilterInstance& stream,
                        Ticks settled, Ticks end) {
    std::vector<Call> calls;
    for (;;) {
        const SimulatedCamera::Arrival arrival = camera.Next();
        const Ticks sinceStart = arrival.at_host - camera.GetSettings().start;
        if (sinceStart >= end)
            return calls;
        if (arrival.report) {
            stream.UpdateSyncInfo(arrival.report);
            continue;
        }
        const Call call = Feed(filter, stream, arrival);
        if (sinceStart >= settled)
            calls.push_back(call);
    }
}

// Both streams write the camera's one D, each from its own latencies. The threads need not keep in step: the
// clocks do not drift, so D is the same at all times.
TEST(ManyStreams, TwoStreamsOfOneCameraOnTwoThreads) {
    const ManualCounter counter;
    TimeFilter filter("camera: ");
    SimulatedCamera::Settings video;
    video.seed = 21;
    video.offset = Ticks(-37'235'000'000);
    video.network = kBusyLan;
    SimulatedCamera::Settings audio = video;
    audio.seed = 22;
    audio.RTPFreq = 48'000;
    audio.framePeriod = Ticks(200'000);  // 20 ms
    audio.network = kWan;
    std::array<std::vector<Call>, 2> calls;
    std::array<std::thread, 2> threads;
    for (std::size_t k = 0; k < 2; ++k) {
        threads[k] = std::thread([&, k] {
            SimulatedCamera camera(k == 0 ? video : audio);
            const std::shared_ptr<TimeFilterInstance> stream =
                NewStream(filter, camera.GetSettings().network);
            calls[k] = Drive(camera, filter, *stream, 10s, 60s);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_NEAR(static_cast<double>(calls[0].size()), 1'250.0, 2.0);
    EXPECT_NEAR(static_cast<double>(calls[1].size()), 2'500.0, 2.0);
    for (const std::vector<Call>& ofStream : calls) {
        PrintMeasured("two streams of one camera", Summarise(ofStream));
        EXPECT_LE(Summarise(ofStream).p99, 7.0) << "the coarser of both networks decides";
    }
    EXPECT_TRUE(filter.StablePtsT0Locked());
}

TEST(ManyStreams, TwoHundredCamerasAtOnce) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kCamerasOfThread = 50;
    const ManualCounter counter;
    std::array<std::vector<Call>, kThreads> calls;
    std::array<std::thread, kThreads> threads;
    for (std::size_t k = 0; k < kThreads; ++k) {
        threads[k] = std::thread([&, k] {
            struct One {
                explicit One(const SimulatedCamera::Settings& settings)
                    : camera(settings)
                    , stream(NewStream(filter, settings.network)) {}
                SimulatedCamera camera;
                TimeFilter filter;
                std::shared_ptr<TimeFilterInstance> stream;
            };
            std::vector<std::unique_ptr<One>> cameras;  // all of them alive at once
            for (std::size_t n = 0; n < kCamerasOfThread; ++n) {
                SimulatedCamera::Settings settings;
                settings.seed = 100 * k + n;
                Random random(settings.seed);
                settings.offset = Ticks(static_cast<std::int64_t>(random.Below(1'728'000'000'000))) - 24h;
                settings.network = kBusyLan;
                cameras.push_back(std::make_unique<One>(settings));
            }
            for (const auto& one : cameras) {
                const std::vector<Call> more = Drive(one->camera, one->filter, *one->stream, 3s, 8s);
                calls[k].insert(calls[k].end(), more.begin(), more.end());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<Call>& ofThread : calls) {
        const Errors errors = Summarise(ofThread);
        PrintMeasured("fifty cameras of one thread", errors);
        EXPECT_EQ(errors.count, 50U * 125U);
        EXPECT_LE(errors.p99, 2.0);
        EXPECT_LE(errors.worst, 3.5);
    }
}

}  // namespace
}  // namespace camclock::test
