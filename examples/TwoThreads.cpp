// Two streams of one camera, each received by a thread of its own: what they share is the camera's
// TimeFilter, which any thread may use; each TimeFilterInstance belongs to its thread alone.
//
// The packets are simulated: the camera's clock is 90 s behind the host's, and a frame takes 20 ms to arrive.
#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/Utilities.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kRate_Hz = 90'000;
constexpr std::int64_t kNtpToUnix_s = 2'208'988'800;
constexpr auto kCameraIsBehind = 90s;
constexpr auto kLatency = 20ms;

/// What the camera sends once in a few seconds: this RTP time stamp was this time of its own clock.
std::shared_ptr<camclock::SyncPoint> SenderReport(camclock::TimePoint captured_host, std::uint32_t RTP_ts) {
    const auto captured_cam = (captured_host - kCameraIsBehind).time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(captured_cam);
    const std::chrono::duration<double> fraction = captured_cam - seconds;
    auto report = std::make_shared<camclock::SyncPoint>();
    report->SyncRTP = RTP_ts;
    report->SyncNTPmsw = static_cast<std::uint32_t>(seconds.count() + kNtpToUnix_s);
    report->SyncNTPlsw = static_cast<std::uint32_t>(fraction.count() * 4'294'967'296.0);
    return report;
}

/// A receiving thread: drives one instance, and nobody else touches it meanwhile.
void Receive(camclock::TimeFilterInstance& stream, camclock::TimePoint start, std::uint32_t framesPerSecond) {
    const std::uint32_t frames = 10 * framesPerSecond;
    const std::uint32_t ticksPerFrame = kRate_Hz / framesPerSecond;
    for (std::uint32_t n = 0; n < frames; ++n) {
        const auto captured_host = start + std::chrono::microseconds(1'000'000LL * n / framesPerSecond);
        if (n % (5 * framesPerSecond) == 0)
            stream.UpdateSyncInfo(SenderReport(captured_host, n * ticksPerFrame));

        auto frame = std::make_shared<camclock::TimingData>();
        frame->RTP_ts = n * ticksPerFrame;
        frame->RTPFreq = kRate_Hz;
        frame->TOR_host = captured_host + kLatency;
        stream.UpdateTiming(frame, n == 0 ? camclock::MediaPacket::kFrameI : camclock::MediaPacket::kFrameP);
    }
}

void Report(const std::string& name, const camclock::TimeFilterInstance& stream, camclock::TimePoint start) {
    const bool good = stream.GetCurrentEstimationQuality() == camclock::MediaPacket::kTrustGood;
    std::cout << name << ": last frame captured "
              << std::chrono::round<std::chrono::milliseconds>(stream.GetCurrentTOC_Host() - start).count()
              << " ms after the start, trust " << (good ? "good" : "bad") << "\n";
}

}  // namespace

int main() {
    auto& host = camclock::Utilities::getInstance();
    host.AnchorToSystemClock();
    const camclock::TimePoint start = host.GetTime();

    camclock::TimeFilter camera("Gate 3: ");
    const auto live = camera.CreateNewTimeFilter();
    const auto archive = camera.CreateNewTimeFilter();
    for (const auto& stream : {live, archive}) {
        stream->SetMeanLatency(kLatency);
        stream->DoTimeFiltering(true);
        stream->DoEstimation(true);
    }

    std::thread liveThread([&] { Receive(*live, start, 25); });
    std::thread archiveThread([&] { Receive(*archive, start, 10); });
    liveThread.join();
    archiveThread.join();

    Report("live", *live, start);
    Report("archive", *archive, start);
    std::cout << "The camera's clock plus " << camera.GetD().count() << " ms is the host's.\n";
}
