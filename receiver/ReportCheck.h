#pragma once

#include <camclock/TimePoint.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace camclock::receiver {

/// A sender report (RFC 3550, 6.4.1) and its arrival.
struct Report {
    std::uint32_t ssrc = 0;
    std::uint64_t ntp = 0;  ///< camera's clock: seconds since 1900 in the upper half, fraction in the lower
    std::uint32_t rtp_ts = 0;
    TimePoint arrival_host{};
};

/// Can this report be believed? A camera's clock and its RTP clock run side by side, so that each report
/// predicts the next: what lies beside says that the camera's clock was set, or that the report is nonsense.
///
/// One thread at a time.
class ReportCheck {
public:
    enum class Verdict {
        kUsable,
        kStepped,      ///< usable, and the camera's clock was set: `Step`
        kImplausible,  ///< not usable: no wall clock (NTP 0), or more than a day beside the others
    };

    /// `rate_Hz`: of the stream's RTP clock, not 0.
    Verdict Check(const Report& report, std::uint32_t rate_Hz);

    /// By how much the clock was set, forward positive; after `kStepped`.
    Ticks Step() const { return step_; }

    /// The last usable report of the epoch.
    const std::optional<Report>& Last() const { return last_; }

    /// A new epoch: nothing is predicted. `first`: its first report, if it is known already.
    void Restart(const std::optional<Report>& first = std::nullopt);

    /// NTP time of a stamp by a report: moved by the RTP distance, truncated to 2^-32 s.
    static std::uint64_t NtpAt(const Report& report, std::uint32_t rtp_ts, std::uint32_t rate_Hz);

private:
    static Ticks _Beside(const Report& from, const Report& to, std::uint32_t rate_Hz);

    /// Reports that lie further apart than this are not of one clock. Noise of cameras reaches some 10 ms.
    static constexpr std::chrono::milliseconds kSame{500};
    /// A clock may be set by whole days; with a second for the reports' own noise.
    static constexpr std::chrono::seconds kPlausible{86'400 + 1};
    /// So many implausible reports that agree are a clock that was set far away.
    static constexpr int kConsistent = 3;

    std::optional<Report> last_;
    std::optional<Report> odd_;  // the last implausible one
    int odds_ = 0;               // implausible ones in a row that agree
    Ticks step_{};
};

}  // namespace camclock::receiver
