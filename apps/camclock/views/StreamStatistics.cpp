#include "apps/camclock/views/StreamStatistics.h"

namespace camclock::app {
namespace {

double InSeconds(Ticks span) {
    return std::chrono::duration<double>(span).count();
}

}  // namespace

void StreamStatistics::Add(const FrameRow& row) {
    if (frames_ == 0)
        first_TOR_host_ = row.frame.TOR_host;
    ++frames_;
    last_ = row;
    receptions_s_.Add(InSeconds(row.frame.TOR_host - first_TOR_host_));
    if (!row.rtcpSync)
        return;
    ++synced_;
    if (row.trust == MediaPacket::kTrustGood)
        ++good_;
    clockLatencies_ms_.Add(InSeconds(row.frame.TOR_host - row.TOC_cam) * 1000.0);
    latencies_ms_.Add(InSeconds(row.frame.TOR_host - row.TOC_host) * 1000.0);
}

double StreamStatistics::FrameRate(std::size_t frames) const {
    const std::vector<double> times = receptions_s_.Newest(frames);
    if (times.size() < 2 || times.back() <= times.front())
        return 0.0;
    return static_cast<double>(times.size() - 1) / (times.back() - times.front());
}

double StreamStatistics::Seconds() const {
    return frames_ == 0 ? 0.0 : InSeconds(last_.frame.TOR_host - first_TOR_host_);
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
