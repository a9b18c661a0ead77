#include "receiver/ReportCheck.h"

#include "receiver/TimeArithmetic.h"

namespace camclock::receiver {
namespace {

/// An NTP time as ticks since 1970, era 0 (RFC 5905, 6), as the mapping reads it.
std::int64_t TicksOfNtp(std::uint64_t ntp) {
    constexpr std::int64_t kNtpToUnixSeconds = 2'208'988'800;  // RFC 868
    constexpr std::uint64_t kTicksPerSecond = 10'000'000;
    const auto seconds = static_cast<std::int64_t>(ntp >> 32) - kNtpToUnixSeconds;
    const std::uint64_t fraction = (ntp & 0xFFFF'FFFFU) * kTicksPerSecond >> 32;
    return seconds * static_cast<std::int64_t>(kTicksPerSecond) + static_cast<std::int64_t>(fraction);
}

Ticks Magnitude(Ticks time) {
    return time < Ticks(0) ? -time : time;
}

}  // namespace

ReportCheck::Verdict ReportCheck::Check(const Report& report, std::uint32_t rate_Hz) {
    if (report.ntp == 0)
        return Verdict::kImplausible;
    step_ = last_ ? _Beside(*last_, report, rate_Hz) : Ticks(0);
    if (Magnitude(step_) > kPlausible) {
        const bool agrees = odd_ && Magnitude(_Beside(*odd_, report, rate_Hz)) <= kSame;
        odds_ = agrees ? odds_ + 1 : 1;
        odd_ = report;
        if (odds_ < kConsistent)
            return Verdict::kImplausible;
    }
    odd_.reset();
    odds_ = 0;
    last_ = report;
    return Magnitude(step_) > kSame ? Verdict::kStepped : Verdict::kUsable;
}

void ReportCheck::Restart(const std::optional<Report>& first) {
    last_ = first;
    odd_.reset();
    odds_ = 0;
}

std::uint64_t ReportCheck::NtpAt(const Report& report, std::uint32_t rtp_ts, std::uint32_t rate_Hz) {
    const auto distance = std::int64_t{static_cast<std::int32_t>(rtp_ts - report.rtp_ts)};
    const bool back = distance < 0;
    const auto ticks = static_cast<std::uint64_t>(back ? -distance : distance);
    const std::uint64_t moved = (ticks / rate_Hz << 32) + (ticks % rate_Hz << 32) / rate_Hz;
    return back ? report.ntp - moved : report.ntp + moved;
}

/// How far the NTP time of `to` lies from what `from` predicts. Both come from 32 bits of seconds: nothing
/// overflows.
Ticks ReportCheck::_Beside(const Report& from, const Report& to, std::uint32_t rate_Hz) {
    const std::int64_t rtp =
        RtpElapsed(from.rtp_ts, to.rtp_ts, rate_Hz, Elapsed(from.arrival_host, to.arrival_host));
    const std::int64_t predicted = ToInt64(static_cast<double>(rtp) / static_cast<double>(rate_Hz) * 1e7);
    return Ticks(SaturatingAdd(TicksOfNtp(to.ntp) - TicksOfNtp(from.ntp), SaturatingNegate(predicted)));
}

}  // namespace camclock::receiver
