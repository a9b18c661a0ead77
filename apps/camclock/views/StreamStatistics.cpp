#include "apps/camclock/views/StreamStatistics.h"

#include <cmath>
#include <numeric>

namespace camclock::app {
namespace {

double InSeconds(Ticks span) {
    return std::chrono::duration<double>(span).count();
}

}  // namespace

void StreamStatistics::Add(const FrameRow& row) {
    const receiver::Frame& frame = row.frame;
    if (frames_ == 0)
        first_host_ = frame.arrived_host;
    else
        _UpdateJitter(row);
    ++frames_;
    last_ = row;
    receptions_s_.Add(InSeconds(frame.arrived_host - first_host_));
    sizes_.Add(static_cast<double>(frame.bytes));
    if (!row.Synced())
        return;
    ++synced_;
    if (frame.trust == receiver::Trust::kGood)
        ++good_;
    clockLatencies_ms_.Add(InSeconds(frame.arrived_host - frame.captured_cam) * 1000.0);
    latencies_ms_.Add(InSeconds(frame.arrived_host - frame.captured_host) * 1000.0);
}

/// Over an epoch's end the stamps tell nothing.
void StreamStatistics::_UpdateJitter(const FrameRow& row) {
    constexpr double kGain = 1.0 / 16.0;
    if (row.frame.epoch != last_.frame.epoch || row.frame.ssrc != last_.frame.ssrc)
        return;
    const auto stamps = static_cast<std::int32_t>(row.frame.rtp_ts - last_.frame.rtp_ts);
    const double sent_ms = stamps * 1000.0 / row.clockRate_Hz;
    const double came_ms = InSeconds(row.frame.arrived_host - last_.frame.arrived_host) * 1000.0;
    jitter_ms_ += (std::fabs(came_ms - sent_ms) - jitter_ms_) * kGain;
}

double StreamStatistics::FrameRate(std::size_t frames) const {
    const std::vector<double> times = receptions_s_.Newest(frames);
    if (times.size() < 2 || times.back() <= times.front())
        return 0.0;
    return static_cast<double>(times.size() - 1) / (times.back() - times.front());
}

double StreamStatistics::BitRate_kbit(std::size_t frames) const {
    const std::vector<double> sizes = sizes_.Newest(frames);
    if (sizes.empty())
        return 0.0;
    const double mean = std::accumulate(sizes.begin(), sizes.end(), 0.0) / static_cast<double>(sizes.size());
    return mean * FrameRate(frames) * 8.0 / 1000.0;
}

double StreamStatistics::Seconds() const {
    return frames_ == 0 ? 0.0 : InSeconds(last_.frame.arrived_host - first_host_);
}

std::optional<double> StreamStatistics::GoodShare() const {
    if (synced_ == 0)
        return std::nullopt;
    return static_cast<double>(good_) / static_cast<double>(synced_);
}

std::optional<double> StreamStatistics::ClockLatency_ms() const {
    if (synced_ == 0)
        return std::nullopt;
    return Percentile(clockLatencies_ms_.Newest(clockLatencies_ms_.Size()), 0.5);
}

std::optional<double> StreamStatistics::Latency_ms(double share, std::size_t frames) const {
    if (synced_ == 0)
        return std::nullopt;
    return Percentile(latencies_ms_.Newest(frames), share);
}

}  // namespace camclock::app
