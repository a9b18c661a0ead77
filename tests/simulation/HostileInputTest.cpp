#include "sim/SimulatedCamera.h"
#include "support/ManualCounter.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Whatever an application, a camera or a network hands in: no undefined behaviour, no race, no leak. The
// sanitizers judge that; the test itself checks what the filter promises for every input.
//
// The run is short by default. CAMCLOCK_SIMULATED_PACKETS=1000000 makes it a long one,
// CAMCLOCK_SIMULATION_SEED another one:
//
//     CAMCLOCK_SIMULATED_PACKETS=1000000 simulation_tests --gtest_filter='HostileInput.*'

namespace camclock::test {
using namespace camclock::sim;  // NOLINT(google-build-using-namespace): the tests are about nothing else

namespace {

constexpr std::size_t kThreads = 4;
constexpr std::size_t kCameras = 6;

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): before any thread is started
    return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// Values that hurt, mixed with usual ones.
class Hostile {
public:
    explicit Hostile(std::uint64_t seed)
        : random_(seed) {}

    bool OneIn(std::uint64_t count) { return random_.Below(count) == 0; }
    std::uint64_t Below(std::uint64_t bound) { return random_.Below(bound); }

    std::int64_t Int64() {
        constexpr std::int64_t kMin = (std::numeric_limits<std::int64_t>::min)();
        constexpr std::int64_t kMax = (std::numeric_limits<std::int64_t>::max)();
        switch (random_.Below(8)) {
        case 0: return kMin + static_cast<std::int64_t>(random_.Below(3));
        case 1: return kMax - static_cast<std::int64_t>(random_.Below(3));
        case 2: return static_cast<std::int64_t>(random_.Below(5)) - 2;
        case 3: return kMin / 10'000 + static_cast<std::int64_t>(random_.Below(5)) - 2;
        case 4: return kMax / 10'000 + static_cast<std::int64_t>(random_.Below(5)) - 2;
        default: return static_cast<std::int64_t>(random_.Next() >> random_.Below(64)) * (OneIn(2) ? 1 : -1);
        }
    }

    std::uint32_t Uint32() {
        constexpr std::array<std::uint32_t, 6> kEdges{0,          1,          0x7FFFFFFF,
                                                      0x80000000, 0xFFFFFFFF, 2'208'988'800};
        return OneIn(3) ? kEdges[random_.Below(kEdges.size())] : static_cast<std::uint32_t>(random_.Next());
    }

    std::int32_t Int32() { return static_cast<std::int32_t>(Uint32()); }

    double Double() {
        using Limits = std::numeric_limits<double>;
        constexpr std::array<double, 8> kEdges{0.0, -0.0, 1e-308, 1e308, -1.0, 90'000.0, 9.3e18, -9.3e18};
        switch (random_.Below(4)) {
        case 0: return Limits::quiet_NaN();
        case 1: return OneIn(2) ? Limits::infinity() : -Limits::infinity();
        default: return kEdges[random_.Below(kEdges.size())];
        }
    }

    TimePoint Time() { return TimePoint(Ticks(Int64())); }
    std::chrono::milliseconds Milliseconds() { return std::chrono::milliseconds(Int64()); }

private:
    Random random_;
};

/// One stream and what the filter has promised about it so far.
struct Stream {
    std::shared_ptr<TimeFilterInstance> filter;
    std::unique_ptr<SimulatedCamera> camera;
    bool synced = false;
    bool filtering = false;
    std::uint64_t packets = 0;
    TimePoint lastSynced_host = kNotYetSet;
    std::int64_t lastPts = 0;
};

class Attack {
public:
    Attack(std::array<std::unique_ptr<TimeFilter>, kCameras>& cameras, std::uint64_t seed)
        : cameras_(cameras)
        , hostile_(seed)
        , seed_(seed) {}

    void Run(std::uint64_t packets) {
        for (std::size_t k = 0; k < kCameras * 2; ++k) {
            streams_.emplace_back();
            _Renew(k);
        }
        for (std::uint64_t k = 0; k < packets; ++k) {
            const auto n = static_cast<std::size_t>(hostile_.Below(streams_.size()));
            if (hostile_.OneIn(4'000))
                _Renew(n);
            _Packet(streams_[n]);
            if (hostile_.OneIn(5))
                _Report(streams_[n]);
            if (hostile_.OneIn(10))
                _ChangeStream(streams_[n]);
            if (hostile_.OneIn(10))
                _ChangeCamera(*cameras_[n % kCameras]);
            if (hostile_.OneIn(10))
                _Ask(streams_[n], *cameras_[n % kCameras]);
        }
        streams_.clear();
    }

private:
    void _Renew(std::size_t n) {
        Stream& stream = streams_[n];
        stream = Stream();
        stream.filter = cameras_[n % kCameras]->CreateNewTimeFilter();
        stream.filter->DoTimeFiltering(stream.filtering = hostile_.OneIn(2));
        stream.filter->DoEstimation(hostile_.OneIn(2));
        SimulatedCamera::Settings settings;
        settings.seed = seed_ + n;
        settings.offset =
            Ticks(static_cast<std::int64_t>(hostile_.Below(1'000'000'000'000)) - 500'000'000'000);
        settings.network = kWifi;
        settings.bFrames = n % 3 == 0 ? 2 : 0;
        settings.delivery = Delivery::kAsTheyArrive;
        stream.camera = std::make_unique<SimulatedCamera>(settings);
    }

    void _Packet(Stream& stream) {
        stream.filter->UpdateTiming(nullptr, MediaPacket::kFrameI);  // is ignored
        std::shared_ptr<TimingData> packet;
        const SimulatedCamera::Arrival arrival = stream.camera->Next();
        if (arrival.report) {
            stream.filter->UpdateSyncInfo(arrival.report);
            stream.synced = true;
        }
        packet = arrival.packet ? arrival.packet : std::make_shared<TimingData>();
        if (hostile_.OneIn(3) || !arrival.packet) {
            if (hostile_.OneIn(2))
                packet->RTP_ts = hostile_.Uint32();
            if (hostile_.OneIn(2))
                packet->RTPFreq = hostile_.Uint32();
            if (hostile_.OneIn(2))
                packet->TOR_host = hostile_.Time();
            packet->RTPSeqnum = hostile_.Uint32();
            packet->SSRC = hostile_.Uint32();
            packet->LiveTOR_tv_sec = hostile_.Int32();
            packet->LiveTOR_tv_usec = hostile_.Int32();
            packet->LivePts_tv_sec = hostile_.Int32();
            packet->LivePts_tv_usec = hostile_.Int32();
            packet->RTCP_sync = hostile_.OneIn(2);
        }
        const auto frameType = static_cast<MediaPacket::Frametype>(hostile_.OneIn(20) ? hostile_.Int32() : 3);
        stream.filter->UpdateTiming(packet, frameType);
        ++stream.packets;
        _CheckPromises(stream, *packet);
    }

    static void _CheckPromises(Stream& stream, const TimingData& packet) {
        const TimePoint TOC_host = stream.filter->GetCurrentTOC_Host();
        const auto trust = stream.filter->GetCurrentEstimationQuality();
        ASSERT_TRUE(trust == MediaPacket::kTrustGood || trust == MediaPacket::kTrustBad);
        if (stream.filtering && stream.synced) {
            ASSERT_GE(TOC_host, stream.lastSynced_host) << "never runs backwards";
            ASSERT_LE(TOC_host, (std::max)(packet.TOR_host, stream.lastSynced_host))
                << "never after the reception";
            stream.lastSynced_host = TOC_host;
        } else if (stream.filtering) {
            ASSERT_LE(TOC_host, packet.TOR_host);
        } else {
            ASSERT_EQ(trust, MediaPacket::kTrustBad);
        }
        const std::int64_t pts = stream.filter->GetCurrentStablePTS();
        if (stream.packets > 1) {
            ASSERT_GT(pts, stream.lastPts) << "grows with every packet";
        }
        stream.lastPts = pts;
    }

    void _Report(Stream& stream) {
        stream.filter->UpdateSyncInfo(nullptr);  // is ignored
        if (!hostile_.OneIn(2))
            return;
        auto report = std::make_shared<SyncPoint>();
        report->SyncRTP = hostile_.Uint32();
        report->SyncSSRC = hostile_.Uint32();
        report->SyncNTPmsw = hostile_.Uint32();
        report->SyncNTPlsw = hostile_.Uint32();
        report->syncTime = hostile_.Time();
        stream.filter->UpdateSyncInfo(report);
        stream.synced = true;
    }

    void _ChangeStream(Stream& stream) {
        switch (hostile_.Below(6)) {
        case 0: stream.filter->DoTimeFiltering(stream.filtering = hostile_.OneIn(2)); break;
        case 1: stream.filter->DoEstimation(hostile_.OneIn(2)); break;
        case 2: stream.filter->EnableTimeOutCheck(hostile_.OneIn(2)); break;
        case 3: stream.filter->SetStreamId(std::string(hostile_.Below(40), 'x')); break;
        case 4: stream.filter->SetMeanLatency(hostile_.Milliseconds()); break;
        default: stream.filter->TraceCurrentPacket(); break;
        }
    }

    // Only what may be called while streams run.
    void _ChangeCamera(TimeFilter& camera) {
        switch (hostile_.Below(8)) {
        case 0: camera.SetD(hostile_.Milliseconds()); break;
        case 1: camera.SetSyncShift(hostile_.Milliseconds()); break;
        case 2: camera.SetPacketTimeOut(hostile_.Milliseconds()); break;
        case 3: camera.SetRtcpTimeOut(hostile_.Milliseconds()); break;
        case 4: camera.RequireRTCP(hostile_.OneIn(2)); break;
        case 5: camera.CheckPollDifference(hostile_.Milliseconds()); break;
        case 6: camera.SetStablePtst0(hostile_.Time(), hostile_.OneIn(1'000)); break;
        default: camera.ShutDown(); break;
        }
    }

    void _Ask(Stream& stream, TimeFilter& camera) {
        auto sync = std::make_shared<SyncPoint>();
        sync->SyncRTP = hostile_.Uint32();
        sync->syncTime = hostile_.Time();
        TimeFilterInstance::MapTime(hostile_.OneIn(10) ? nullptr : sync, hostile_.Uint32(),
                                    hostile_.Double());
        stream.filter->GetTOC_Cam(hostile_.Uint32(), hostile_.Uint32(), hostile_.Time());
        stream.filter->GetTOC_Host(hostile_.Time());
        if (stream.packets > 0)  // before the first packet the check would start the clocks
            stream.filter->PacketArrivalIsOk();
        stream.filter->StablePtsIsOk();
        stream.filter->TimeEstimatesInitialized();
        camera.GetD_uncert();
        camera.GetStablePtsT0(hostile_.OneIn(2));
        camera.DIsLocked();
        if (hostile_.OneIn(20))
            Utilities::getInstance().ResetTime(hostile_.Time(), hostile_.Int64());
    }

    std::array<std::unique_ptr<TimeFilter>, kCameras>& cameras_;
    Hostile hostile_;
    std::uint64_t seed_;
    std::vector<Stream> streams_;
};

TEST(HostileInput, ManyStreamsOfSharedCamerasKeepWhatIsPromised) {
    const std::uint64_t packets = FromEnvironment("CAMCLOCK_SIMULATED_PACKETS", 20'000);
    const std::uint64_t seed = FromEnvironment("CAMCLOCK_SIMULATION_SEED", 20'260'115);
    std::printf("[ SEED     ] %llu, %llu packets\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(packets));
    const std::filesystem::path directory = std::filesystem::path(testing::TempDir()) /
                                            ("camclock-hostile-" + std::to_string(Utilities::GetCounter()));
    std::filesystem::create_directories(directory);
    const ManualCounter counter;
    std::atomic<std::uint64_t> shutdowns{0};
    std::array<std::unique_ptr<TimeFilter>, kCameras> cameras;
    for (std::size_t k = 0; k < kCameras; ++k) {
        cameras[k] = std::make_unique<TimeFilter>("hostile " + std::to_string(k) + ": ");
        if (k != 1)  // one camera has no handler
            cameras[k]->AssignShutdownHandler([&] { ++shutdowns; });
    }
    cameras[0]->EnableTimeLogging(directory.string());
    std::array<std::thread, kThreads> threads;
    for (std::size_t k = 0; k < kThreads; ++k) {
        threads[k] = std::thread([&, k] { Attack(cameras, seed * 1'000 + k).Run(packets / kThreads); });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(shutdowns, 0U);
    cameras = {};
    EXPECT_GT(std::filesystem::file_size(directory / "timinglog0.txt"), 0U);
    std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace camclock::test
