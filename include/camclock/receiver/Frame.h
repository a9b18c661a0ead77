#pragma once

#include <camclock/MediaPacket.h>
#include <camclock/TimePoint.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace camclock::receiver {

/// How far a frame's time of capture can be trusted.
enum class Trust {
    kArrivalOnly,  ///< no sender report yet, or ever: arrival less the mean latency
    /// Fewer than 26 frames since the epoch's first report, after a silence of more than 10 s, or behind a
    /// step of the camera's clock of more than 20 ms that begins no epoch. The floor line's answer: until its
    /// first block is full.
    kSettling,
    kGood,      ///< not proved wrong
    kReplaced,  ///< the estimate lay after the arrival, which is given instead
};

/// One frame and its time of capture. A value: keep it, copy it, pass it on.
///
/// Names that end in `_host` are times of the host's clock (`Now`), those in `_cam` of the camera's; both in
/// ticks of 100 ns since 1970-01-01 UTC.
struct Frame {
    TimePoint captured_host{};  ///< the answer; never after `arrived_host`
    TimePoint
        captured_cam{};  ///< from the sender reports; `arrived_host` while `kArrivalOnly` for want of them
    TimePoint arrived_host{};  ///< of the frame's first packet
    Trust trust = Trust::kArrivalOnly;
    TimePoint median_host{};   ///< the answer of the median estimator (`Estimator::kMedian`)
    TimePoint precise_host{};  ///< the answer of the floor line (`Estimator::kFloorLine`)

    /// Of `captured_host`, either way: the floor line's, or half the round trip of the measured `D`. None
    /// where nobody knows. An error in the latency that was set comes on top of it.
    std::optional<std::chrono::microseconds> uncertainty;

    /// Earliest and latest possible time of capture; with `Settings::cameraDelay` only.
    std::optional<std::pair<TimePoint, TimePoint>> bound;

    std::chrono::milliseconds D{0};  ///< host's clock less camera's, as used for this frame's `median_host`

    /// Presentation time stamp: ticks of the stream's RTP clock since the camera's first frame. It goes on
    /// over epochs; streams of one camera share its origin.
    std::int64_t pts = 0;

    std::uint32_t epoch = 1;   ///< the stretch in which one mapping holds; counts up from 1
    std::uint32_t rtp_ts = 0;  ///< RTP time stamp (RFC 3550, 5.1)
    std::uint32_t ssrc = 0;    ///< synchronisation source
    std::uint16_t seq = 0;     ///< sequence number of the first packet
    MediaPacket::Frametype type = MediaPacket::kFrameUnknown;
    bool key = false;           ///< decoding can begin here
    bool complete = true;       ///< no sequence number is missing in it or right before it
    std::uint32_t packets = 0;  ///< that it came in
    std::uint64_t bytes = 0;    ///< of payload, without RTP headers and padding
};

/// Something that happened to a stream, told once.
struct Event {
    enum class Kind {
        kFirstReport,        ///< the epoch's first usable sender report
        kClockStepped,       ///< the camera's clock was set; `size`: by how much, forward positive
        kSourceChanged,      ///< another SSRC is believed
        kGap,                ///< nothing came for a while; `size`: how long
        kSilent,             ///< nothing has come for `Settings::packetTimeOut`, up to now
        kReportsMissing,     ///< no report for `Settings::reportTimeOut`, although they are required
        kImplausibleReport,  ///< a report that does not fit the others, and was not used
        kProbeGaveUp,        ///< ICMP time stamps are not answered usably: `D` is estimated from now on
        kRouteChanged,  ///< the least latency of the network changed; `size`: by how much, longer positive
    };
    Kind kind{};
    std::string camera;  ///< name
    std::string stream;  ///< id; empty for an event of the camera as a whole
    std::string text;    ///< one line for people, no control characters
    std::chrono::milliseconds size{0};
};

/// What a stream has seen so far. Counts never go down, but for `lost`: a packet that comes late after all is
/// taken off again.
struct Statistics {
    std::uint64_t frames = 0;     ///< delivered
    std::uint64_t packets = 0;    ///< RTP packets of the stream that were used
    std::uint64_t bytes = 0;      ///< their payload
    std::uint64_t reports = 0;    ///< sender reports that were used
    std::uint64_t replaced = 0;   ///< frames with `Trust::kReplaced`
    std::uint64_t lost = 0;       ///< sequence numbers that never came
    std::uint64_t late = 0;       ///< packets that came after their frame, or twice, and were dropped
    std::uint64_t malformed = 0;  ///< datagrams that are no RTP or RTCP, or of another payload type
    std::uint64_t foreign = 0;    ///< packets and reports of a source that is not, or no longer, the stream's
    std::uint64_t implausible = 0;  ///< reports whose time cannot be: none (NTP 0), or far from the others
    std::chrono::milliseconds D{0};
    std::chrono::microseconds D_uncert{0};     ///< of the measured `D`; 0 while it is estimated
    std::chrono::microseconds latency_p50{0};  ///< of `captured_host` to arrival, over the last 256 frames
    std::chrono::microseconds latency_p95{0};
    std::chrono::microseconds queue{0};  ///< what the network's queues add now, above the floor line
    double skew_ppm = 0.0;  ///< the camera's RTP clock against the host's; positive: it runs fast
    std::optional<TimePoint> lastReport_host;
    std::uint32_t epoch = 1;
};

}  // namespace camclock::receiver
