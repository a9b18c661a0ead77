#include "probe/TimeProbe.h"

#include "logging/Categories.h"
#include "logging/DirectMessage.h"
#include "logging/Text.h"
#include "probe/IcmpTimestamp.h"
#include "util/Arithmetic.h"

#include <camclock/Utilities.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace camclock {
namespace {

constexpr std::size_t kBufferSize = 500;
constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr double kMillisecondsPerDay = 86'400'000.0;
constexpr std::int64_t kMillisecondsPerHour = 3'600'000;

/// A day of UTC has 86,400 seconds on the system clock, leap seconds or not.
TimePoint MidnightBefore(TimePoint time) {
    const std::int64_t seconds = time.time_since_epoch().count() / kTicksPerSecond;
    const std::int64_t secondOfDay = (seconds % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay;
    return TimePoint(Ticks(WrappingMultiply(seconds - secondOfDay, kTicksPerSecond)));
}

/// Where a clock stands that is `difference_ms` behind `now`.
TimePoint Behind(TimePoint now, std::int64_t difference_ms) {
    return MovedBy(now, WrappingSubtract(0, WrappingMultiply(difference_ms, kTicksPerMillisecond)));
}

/// The difference in the two forms of the log: hours, minutes and seconds, and milliseconds.
std::string DifferenceText(double difference_ms, double half_ms) {
    const double magnitude_ms = std::fabs(difference_ms);
    const auto whole_ms = static_cast<std::uint32_t>(TruncateToInt64(magnitude_ms));
    const std::uint32_t hours = whole_ms / 3'600'000;
    const std::uint32_t minutes = whole_ms % 3'600'000 / 60'000;
    const double seconds = (magnitude_ms - hours * 3'600'000.0 - minutes * 60'000.0) / 1000.0;
    const char* const sign = difference_ms < 0.0 ? " - " : " + ";
    return Text("Local_time = Remote_time", sign, hours, " hours, ", minutes, " minutes, ", seconds, "+-",
                half_ms / 1000.0, " seconds", "/ Local_time = Remote_time", sign, "(", magnitude_ms, "+-",
                half_ms, ")ms");
}

}  // namespace

TimeProbe::TimeProbe(std::string logPrefix)
    : logPrefix_(std::move(logPrefix)) {}

ProbeResult TimeProbe::Probe(const std::string& host, int count, int timeout_ms,
                             std::int64_t expectedDifference_ms) {
    static const std::atomic<bool> always{true};
    return *ProbeWhile(always, host, count, timeout_ms, expectedDifference_ms);
}

std::optional<ProbeResult> TimeProbe::ProbeWhile(const std::atomic<bool>& wanted, const std::string& host,
                                                 int count, int timeout_ms,
                                                 std::int64_t expectedDifference_ms) {
    if (!turn_->Take(wanted))
        return std::nullopt;
    struct AtTheEnd {
        ProbeTurn& turn;
        ~AtTheEnd() { turn.GiveBack(); }
    };
    const AtTheEnd atTheEnd{*turn_};
    return _ProbeNow(host, count, timeout_ms, expectedDifference_ms);
}

/// Holding the turn.
ProbeResult TimeProbe::_ProbeNow(const std::string& host, int count, int timeout_ms,
                                 std::int64_t expectedDifference_ms) {
    _Log("Probing ", host, " ", count, " times, with timeout ", timeout_ms, "ms");
    if (!CreateSocket(host, 0))
        return {};
    std::vector<ProbeResult> results;
    for (int i = 0; i < count; ++i) {
        ProbeResult result;
        const auto sequence = static_cast<std::uint16_t>(sequence_++);
        if (ProbeOnce(sequence, static_cast<std::uint32_t>(timeout_ms), result))
            results.push_back(result);
    }
    ReleaseSocket();
    ProbeResult result = SelectShortestRoundTrip(results, timeout_ms);
    if (result.uncertainty < 0.0) {
        _Log("No ICMP returned gracefully");
        return result;
    }
    CheckAgainstExpected(result, expectedDifference_ms);
    return result;
}

bool TimeProbe::ProbeOnce(std::uint16_t sequence, std::uint32_t timeout_ms, ProbeResult& out) {
    // Never seeded, as the identifier only has to tell one request from the last. Runtimes differ in the
    // range of rand, so it is cut to the 16 bits of the field before it is sent and compared.
    const int random = std::rand();  // NOLINT(concurrency-mt-unsafe): in its turn to probe
    const auto identifier = static_cast<std::uint16_t>(static_cast<unsigned>(random) & 0xFFFFU);
    const icmp::TimestampRequest request =
        icmp::MakeRequest(identifier, sequence, static_cast<std::uint32_t>(MillisecondsAfterMidnightUtc()));
    if (!Write(request.data(), request.size()))
        return false;
    if (!WaitForReadyRead(timeout_ms))
        return false;
    std::array<std::uint8_t, kBufferSize> buffer{};
    const std::int32_t count = Read(buffer.data(), buffer.size());
    // Deliberate: an error, -1, goes on as a length of 4,294,967,295 (TimeProbeRun.AReadErrorIsAWrongSize).
    return ParseTimestampReply(buffer.data(), static_cast<std::uint32_t>(count), identifier, out);
}

bool TimeProbe::ParseTimestampReply(const void* buffer, std::uint32_t length, std::uint32_t identifier,
                                    ProbeResult& out) {
    const std::int64_t returned_ms = MillisecondsAfterMidnightUtc();  // before anything else takes time
    if (length != icmp::kReplySize)
        return _Refuse("Wrong size packet read: ", length);
    const icmp::TimestampReply reply = icmp::ReadReply(buffer);
    if (reply.protocol != icmp::kProtocol) {
        // Deliberate: a character, not a number
        // (TimestampReply.RefusesAnotherProtocolAndNamesItAsACharacter).
        return _Refuse("Got packet for wrong protocol: ", static_cast<char>(reply.protocol));
    }
    if (reply.type != icmp::kTimestampReply)
        return _Refuse("Error, got packet with type: ", reply.type, " expected: ", "14");
    if (reply.identifier != identifier)
        return _Refuse("Error, got packet with id: ", reply.identifier, " expected: ", identifier);
    const double half_ms = static_cast<double>(WrappingSubtract(returned_ms, reply.originate_ms)) * 0.5;
    const double middle_ms = reply.originate_ms + half_ms;
    const double difference_ms = middle_ms - reply.transmit_ms;
    if (_InfoEnabled()) {
        const TimePoint midnight = MidnightUtc();
        _Log("Remote timestamp: ", MovedByMilliseconds(midnight, reply.transmit_ms),
             " seconds after midnight UTC (", reply.transmit_ms, ") millisecs");
        _Log("Corresponding Local: ", MovedByMilliseconds(midnight, TruncateToInt64(middle_ms)), " UTC");
        _Log(DifferenceText(difference_ms, half_ms));
    }
    out = {difference_ms, half_ms};
    return true;
}

bool TimeProbe::CheckAgainstExpected(ProbeResult& result, std::int64_t expectedDifference_ms) {
    _Log("Checking the results of ICMP probing with respect to expected time");
    _Log("Note for following that leap years and such are not accounted for correctly");
    const TimePoint now = Utilities::getInstance().GetTime();
    _Log("Current remote time expected to be: ", Behind(now, expectedDifference_ms), " UTC");
    _Log("Using D_hat:", expectedDifference_ms, " [ms]");
    const std::int64_t estimate_ms = TruncateToInt64(result.difference);
    _Log("Initial estimate sets it to: ", Behind(now, estimate_ms));
    const std::int64_t hours = WrappingSubtract(expectedDifference_ms, estimate_ms) / kMillisecondsPerHour;
    const std::int64_t days = hours / 24 + hours % 24 / 12;
    if (days == 0) {
        _Log("Initial estimate accepted");
        return false;
    }
    _Log("Adding ", days, " days to ICMP estimate");
    result.difference += static_cast<double>(days) * kMillisecondsPerDay;
    const std::int64_t final_ms = TruncateToInt64(result.difference);
    _Log("Final estimate sets it to: ", Behind(now, final_ms));
    _Log("Final ICMP estimate: ", final_ms, " [ms]");
    return true;
}

TimePoint TimeProbe::MidnightUtc() {
    return MidnightBefore(Utilities::getInstance().GetTime());
}

std::int64_t TimeProbe::MillisecondsAfterMidnightUtc() {
    Utilities& clock = Utilities::getInstance();
    const TimePoint shown = clock.GetTime();
    if (InfoEnabled(categories::TimeProbe()))
        WriteInfo(categories::TimeProbe(), Text("Now: ", shown));
    const TimePoint now = clock.GetTime();  // again, since the line above took its time
    const TimePoint midnight = MidnightBefore(now);
    if (InfoEnabled(categories::TimeProbe()))
        WriteInfo(categories::TimeProbe(), Text("Midnight: ", midnight));
    return TicksBetween(midnight, now) / kTicksPerMillisecond;
}

bool TimeProbe::_InfoEnabled() {
    return InfoEnabled(categories::TimeProbe());
}

/// One line to "RTSP.TimeProbe", behind the prefix, made only if it is wanted.
template <class... Parts>
void TimeProbe::_Log(const Parts&... parts) const {
    if (_InfoEnabled())
        WriteInfo(categories::TimeProbe(), Text(logPrefix_, parts...));
}

/// A datagram that is no reply: says so in the log, and keeps it. Always false.
template <class... Parts>
bool TimeProbe::_Refuse(const Parts&... parts) {
    badReply_ = Text(parts...);
    _Log(badReply_);
    return false;
}

ProbeResult SelectShortestRoundTrip(const std::vector<ProbeResult>& results, int timeout_ms) {
    double best = timeout_ms + 1000.0;
    double sum = 0.0;
    int count = 0;
    for (const ProbeResult& result : results) {
        if (!(result.uncertainty >= 0.0))  // so that not-a-number is left out too
            continue;
        if (result.uncertainty < best) {
            best = result.uncertainty;
            sum = result.difference;
            count = 1;
        } else if (result.uncertainty == best) {
            sum += result.difference;
            ++count;
        }
    }
    if (count == 0)
        return {};
    return {sum / count, best};
}

}  // namespace camclock
