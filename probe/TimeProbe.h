#pragma once

#include "probe/ProbeTurn.h"
#include "probe/RawSocket.h"
#include "util/ProcessWide.h"

#include <camclock/TimePoint.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace camclock {

/// What one probing found, in milliseconds.
struct ProbeResult {
    double difference = 0.0;    ///< host's clock minus camera's clock
    double uncertainty = -1.0;  ///< half the round trip; negative when there is no result
};

/// How far is the camera's clock from the host's, measured? Sends ICMP Timestamp messages (RFC 792), keeps
/// the replies with the shortest round trip, and takes the camera to have answered in the middle of it.
/// Writes its steps to "RTSP.TimeProbe".
///
/// Owned by the camera clock. `Probe` may be called from any thread: one exchange runs at a time in the
/// whole process (`ProbeTurn`).
///
///     TimeProbe probe("Gate 3: ");
///     const ProbeResult result = probe.Probe("192.0.2.7", 5, 300, expected_ms);
///     if (result.uncertainty >= 0.0)
///         use(result.difference);
///
/// Host time is `Utilities::GetTime`. The messages count milliseconds since midnight UTC, so a result is
/// ambiguous by whole days until it is compared with the difference that the caller expects.
class TimeProbe : public RawSocket {
public:
    /// `logPrefix` stands in front of every message but those of `MillisecondsAfterMidnightUtc`.
    explicit TimeProbe(std::string logPrefix);

    /// `count` requests to `host`, each waiting `timeout_ms` for its reply. The empty result when the host
    /// cannot be resolved, no raw socket can be had, or no request brought a usable reply.
    ProbeResult Probe(const std::string& host, int count, int timeout_ms, std::int64_t expectedDifference_ms);

    /// The same for a caller who may have to end: nothing, and nothing written, when `wanted` was cleared
    /// before the probe's turn came. Whoever clears it calls `LookAgain` of the process's `ProbeTurn`.
    std::optional<ProbeResult> ProbeWhile(const std::atomic<bool>& wanted, const std::string& host, int count,
                                          int timeout_ms, std::int64_t expectedDifference_ms);

    /// What came in place of a reply, the last time that something did; empty when nothing has. As in the
    /// log, for whoever asks why there is no result.
    const std::string& BadReply() const { return badReply_; }

    /// One request and the one datagram that comes next, over the open socket. False, with `out` untouched,
    /// when it cannot be sent, nothing comes in time, or what comes is not its reply: there is no second try.
    bool ProbeOnce(std::uint16_t sequence, std::uint32_t timeout_ms, ProbeResult& out);

    /// Reads a datagram of `length` bytes, IPv4 header included, as the reply
    /// to the request with `identifier`.
    ///
    /// Deliberate: exactly 40 bytes are accepted, so that an IPv4 header with options is refused
    /// (TimestampReply.RefusesAHeaderWithOptions).
    bool ParseTimestampReply(const void* buffer, std::uint32_t length, std::uint32_t identifier,
                             ProbeResult& out);

    /// Adds the whole days by which the result is nearer to `expectedDifference_ms` (a gap of 12 hours or
    /// more is rounded to the next day); true when there were any.
    bool CheckAgainstExpected(ProbeResult& result, std::int64_t expectedDifference_ms);

    /// The last midnight UTC on the host's clock.
    static TimePoint MidnightUtc();

    /// Whole milliseconds since then, truncated. Two lines of the log tell the readings.
    static std::int64_t MillisecondsAfterMidnightUtc();

private:
    ProbeResult _ProbeNow(const std::string& host, int count, int timeout_ms,
                          std::int64_t expectedDifference_ms);
    static bool _InfoEnabled();
    template <class... Parts>
    bool _Refuse(const Parts&... parts);
    template <class... Parts>
    void _Log(const Parts&... parts) const;

    std::uint32_t sequence_ = 0;  // counts every request of this object's life
    std::string logPrefix_;
    std::string badReply_;
    ProcessWide<ProbeTurn> turn_;
};

/// The mean of the results with the smallest uncertainty, and that uncertainty. Results with a negative one,
/// or one above the time-out by more than a second, do not count; the empty result when none does.
ProbeResult SelectShortestRoundTrip(const std::vector<ProbeResult>& results, int timeout_ms);

}  // namespace camclock
