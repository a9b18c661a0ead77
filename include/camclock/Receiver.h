#pragma once

#include <camclock/TimePoint.h>
#include <camclock/receiver/Export.h>
#include <camclock/receiver/Format.h>
#include <camclock/receiver/Frame.h>
#include <camclock/receiver/Settings.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// From datagrams to frames with a time of capture.
///
///     using namespace camclock::receiver;
///     Camera camera("gate 3");
///     const auto formats = Format::FromSdp(sdp);
///     const auto stream = camera.AddStream("video", formats.at(0), [](const Frame& frame) {
///         if (frame.trust == Trust::kGood)
///             Store(frame.rtp_ts, frame.captured_host);
///     });
///     stream->FeedRtcp(data, size, Now());  // every datagram as it arrives, reports first
///     stream->FeedRtp(data, size, Now());
///     camera.Poll();                        // some times a second
namespace camclock::receiver {

/// The host's time now at the counter's full resolution, truncated to ticks of 100 ns. It is the clock of
/// `Utilities::GetTime` without the rounding to milliseconds. The first use in a process anchors it to the
/// system clock, unless the application anchored `Utilities` before; steps of the system clock do not move it
/// afterwards. Any thread.
CAMCLOCK_RECEIVER_API TimePoint Now();

/// A time of the system clock, such as the kernel's stamp of a datagram (SO_TIMESTAMPNS), on the clock of
/// `Now`. A stamp that was taken before the system clock was set lies beside by that step; never later than
/// `Now`. Any thread.
CAMCLOCK_RECEIVER_API TimePoint FromSystem(std::chrono::system_clock::time_point time);

/// One stream of a camera: datagrams in, frames out.
///
/// Made by `Camera::AddStream`, shared with the application, which may keep it longer than the camera.
///
/// Threads: every operation from any thread; a call takes the stream's lock. The sink runs inside the call
/// that completes a frame, within that lock: it must neither wait nor call back into stream or camera. It is
/// not called any more, and no call of it is under way, once the application's last pointer to the stream is
/// gone.
///
/// Order: hand over datagrams in the order of their arrival, and reports before packets that arrived in the
/// same moment, so that the first frame after a report is mapped by it. `arrival` is the host's time (`Now`,
/// `FromSystem`) at which the datagram reached the host, the earlier read the better.
///
/// Where a sequence number is missing, later packets wait for it: eight of them, or a quarter of a second by
/// arrivals and `Camera::Poll`.
class CAMCLOCK_RECEIVER_API Stream {
public:
    using Sink = std::function<void(const Frame&)>;

    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// One RTP packet (RFC 3550, 5.1), header included. What is none is counted (`Statistics::malformed`).
    void FeedRtp(const void* datagram, std::size_t size, TimePoint arrival);

    /// One RTCP datagram: compound (RFC 3550, 6.1) or reduced-size (RFC 5506). Sender reports and BYE are
    /// used.
    void FeedRtcp(const void* datagram, std::size_t size, TimePoint arrival);

    /// One sender report (RFC 3550, 6.4.1) that somebody else has read. `ntp`: seconds since 1900 in the
    /// upper half, fraction in the lower, camera's clock. Host byte order.
    void FeedReport(std::uint32_t ssrc, std::uint64_t ntp, std::uint32_t rtp_ts, TimePoint arrival);

    /// One frame that somebody else has put together. `rtp_ts`, `ssrc`, `seq` (of its first packet),
    /// `arrived_host`, `type`, `key`, `packets`, `bytes` and `complete` are read; the sink gets it with the
    /// rest.
    void FeedFrame(const Frame& assembled);

    /// Delivers the frame that is still open, without waiting for its end.
    void Flush();

    /// After a new connection to the camera: the next packet may be of another source and begins a new epoch.
    void Restarted();

    /// The frame of an RTP time stamp, among the last 256 delivered.
    std::optional<Frame> Find(std::uint32_t rtp_ts) const;

    /// The host's time of capture of an RTP time stamp by the mapping as it stands, for elements that stamp
    /// packets as they pass, before their frame is complete. None before the first frame.
    std::optional<TimePoint> Map(std::uint32_t rtp_ts) const;

    Statistics Snapshot() const;

private:
    friend class Camera;
    struct State;
    explicit Stream(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

/// One camera: its streams share the clock difference, the origin of the presentation time stamps and the
/// settings.
///
/// Owned by the application. Every operation from any thread. Streams that outlive the camera go on, without
/// events. With the last of camera and streams the threads of their logs end, which takes some 10 ms, and as
/// long as one exchange with the camera (1.5 s) where `D` is measured.
class CAMCLOCK_RECEIVER_API Camera {
public:
    /// `onEvent` is called from `Poll` and from the feeding threads, one call at a time; it must neither wait
    /// nor call back. Throws `std::system_error` when a thread cannot be started.
    explicit Camera(std::string name, Settings settings = {}, std::function<void(const Event&)> onEvent = {});
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// A new stream. `id` stands in events, in the library's messages and in the timing log; `sink` gets
    /// every frame.
    std::shared_ptr<Stream> AddStream(std::string id, const Format& format, Stream::Sink sink);

    /// Latency of the usual and of the fastest frame, from capture to arrival; holds from the next frame on.
    /// The library logs each change of the mean latency: not for every frame.
    void SetMeanLatency(std::chrono::milliseconds meanLatency);
    void SetLeastLatency(std::chrono::microseconds leastLatency);

    /// Supervision, probing and the deadlines of reordering: call it some times a second.
    void Poll();

    /// The same at a time of the caller's: where arrivals are not of `Now`, as those of a capture file.
    void Poll(TimePoint now);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Shows every message of the two libraries to `onMessage`, which replaces an earlier one; none ends it. No
/// word of log4cpp is needed for it: without `OnLogMessage` the messages go wherever the application's
/// log4cpp set-up sends them, which is nowhere if there is none. `category`: "RTSP.TimeFilter" and the like.
/// Called on the libraries' threads, one call at a time; it must not call back.
CAMCLOCK_RECEIVER_API void
OnLogMessage(std::function<void(const std::string& category, const std::string& text)> onMessage);

}  // namespace camclock::receiver
