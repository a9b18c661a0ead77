#pragma once

#include <camclock/SyncPoint.h>
#include <camclock/TimingData.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace camclock::sim {

/// A camera at 30 frames/s whose clock is an hour off, seen over a busy network: the same frames for every
/// variant.
class SimulatedStream {
public:
    explicit SimulatedStream(unsigned seed = 1)
        : random_(seed) {}

    std::shared_ptr<SyncPoint> Report() const {
        auto report = std::make_shared<SyncPoint>();
        report->SyncRTP = rtp_;
        report->SyncNTPmsw = static_cast<std::uint32_t>(seconds_ + 2'208'988'800);
        report->SyncNTPlsw = 0;
        return report;
    }

    std::shared_ptr<TimingData> Frame() {
        auto frame = std::make_shared<TimingData>();
        frame->RTP_ts = rtp_ += 3'000;
        frame->RTPFreq = 90'000;
        frame->RTPSeqnum = ++sequence_;
        const std::int64_t captured = seconds_ * 10'000'000 + sequence_ * std::int64_t{10'000'000} / 30;
        frame->TOR_host = TimePoint(
            Ticks(captured + 36'000'000'000 + 5'000 + static_cast<std::int64_t>(random_() % 20'000)));
        return frame;
    }

    std::vector<std::shared_ptr<TimingData>> Frames(std::size_t count) {
        std::vector<std::shared_ptr<TimingData>> frames(count);
        for (auto& frame : frames)
            frame = Frame();
        return frames;
    }

private:
    std::mt19937 random_;
    std::int64_t seconds_ = 1'700'000'000;
    std::uint32_t rtp_ = 4'294'000'000;  // wraps soon
    std::uint32_t sequence_ = 0;
};

}  // namespace camclock::sim
