#pragma once

#include "receiver/CameraState.h"
#include "receiver/FloorLine.h"
#include "receiver/FrameAssembler.h"
#include "receiver/MedianClock.h"
#include "receiver/ReportCheck.h"
#include "receiver/RtcpReader.h"
#include "receiver/SourceChoice.h"

#include <camclock/Receiver.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace camclock::receiver {

/// The road from datagrams to frames for one stream:
///
///     packet -> RtpReader -> SourceChoice -> FrameAssembler -> _OnFrame -> sink
///     report -> RtcpReader -> ReportCheck -> MedianClock
///
/// `_OnFrame` divides the stream into epochs, stretches in which one mapping holds, and asks both estimators.
///
/// One thread at a time: `Stream` holds the lock.
class StreamSession {
public:
    StreamSession(std::shared_ptr<CameraState> camera, std::string id, Format format, Stream::Sink sink,
                  TimePoint now_host);
    ~StreamSession();

    StreamSession(const StreamSession&) = delete;
    StreamSession& operator=(const StreamSession&) = delete;

    void TakeRtp(const std::uint8_t* data, std::size_t size, TimePoint arrival_host);
    void TakeRtcp(const std::uint8_t* data, std::size_t size, TimePoint arrival_host);
    void TakeReport(const Report& report);
    void TakeFrame(const Frame& assembled);
    void Flush();
    void Restarted();
    void Poll(TimePoint now_host);

    /// The application has let go of the stream: nothing is delivered any more. Returns the sink, to be
    /// ended.
    Stream::Sink Close() { return std::exchange(sink_, nullptr); }

    std::optional<Frame> Find(std::uint32_t rtp_ts) const;
    std::optional<TimePoint> Map(std::uint32_t rtp_ts) const;
    Statistics Snapshot() const;

private:
    /// Why an epoch begins.
    enum class Cause {
        kNone,
        kRestarted,      ///< a new connection
        kSourceChanged,  ///< another SSRC
        kStampsSet,      ///< the RTP clock was set
        kBacklog,  ///< a long pause, behind which the stamps go on as if there had been none: all was held up
        kSilence,  ///< longer than the library's stable time stamps bear
        kClockStepped,  ///< the camera's wall clock was set: its reports say so, its stamps go on
    };

    /// How a frame lies to those before it.
    struct Step {
        Cause cause = Cause::kNone;
        std::int64_t rtp = 0;   ///< ticks from the newest stamp
        Ticks arrival{};        ///< from the newest stamp's
        bool runsBack = false;  ///< its stamp is not the newest
    };

    /// The newest report of a source whose packets are not the stream's, or not yet.
    struct EarlyReport {
        Report report;
        bool isForeign = false;  ///< and it was counted so
    };

    void _Take(const Arrived& arrived);
    void _Hand(const Arrived& arrived);
    void _OnFrame(const Assembled& frame);
    Step _StepTo(const Assembled& frame) const;
    void _FollowCadence(const Step& step);
    void _BeginEpoch(Cause cause, const Assembled* frame);
    bool _RtpClockWentOn(const Assembled& frame) const;
    bool _Fits(const Report& report, const Assembled& frame, Ticks within) const;

    void _UseReport(const Report& report);
    void _KeepEarly(const Report& report, bool isForeign);
    void _UseEarly();
    bool _StartClock(const Assembled& frame);
    void _Doubt(Ticks step);
    void _EndClock();
    void _AnswerByMedian(const Assembled& frame, const Step& step, Frame& out);
    void _AnswerByLine(const Assembled& frame, const Step& step, Frame& out);
    bool _IsDoubtful(const FloorLine::Answer& line, const Step& step);
    void _Bound(const FloorLine::Answer& line, Frame& out) const;
    void _Stamp(const Assembled& frame, const Step& step, Frame& out);
    void _Remember(const Frame& frame);
    void _Raise(Event::Kind kind, const std::string& text, Ticks size = {}) const;
    void _PollMeasuring();

    const std::shared_ptr<CameraState> camera_;
    const std::string id_;
    const Format format_;
    const std::uint32_t rate_Hz_;
    Stream::Sink sink_;
    const std::size_t ptsPlace_;

    // ---- packets
    SourceChoice source_;
    std::uint32_t ssrc_ = 0;  // of what is handed on now
    FrameAssembler assembler_;
    RtcpContents rtcp_;
    std::vector<EarlyReport> early_;  // of sources that are not the stream's, or not yet; the oldest first

    // ---- the epoch
    std::uint32_t epoch_ = 1;
    Cause pending_ = Cause::kNone;  // the next frame begins an epoch
    ReportCheck reports_;
    std::unique_ptr<MedianClock> median_;  // from the epoch's first report on
    std::optional<Report> unfed_;         // a report that waits for `median_`, or for the epoch's first frame
    std::optional<TimePoint> noThreads_;  // since then threads cannot be had
    std::chrono::milliseconds meanLatency_;  // as `median_` knows it
    std::uint32_t synced_ = 0;               // frames since the epoch's first report
    std::uint32_t unsettled_ = 0;            // frames until the median is trusted again, after a silence
    bool hasFrame_ = false;                  // the epoch has had a frame
    std::optional<std::chrono::milliseconds> expectedD_;  // the last epoch's
    FloorLine line_;
    std::chrono::microseconds lineUncertainty_{0};  // before the newest frame
    bool lostAtSet_ = false;  // a frame was lost right before this one, or since the stamps were set back
    std::optional<std::chrono::microseconds> lineIsDoubtfulAbove_;  // of its uncertainty
    std::uint32_t lineBehind_ =
        0;  // frames for which it may not have noticed yet that the stamps were set back

    // ---- the newest stamp
    bool started_ = false;
    Assembled newest_;
    std::uint32_t newestSsrc_ = 0;  // its source
    TimePoint newestMapped_host_;   // its time of capture by the median's mapping
    double usual_s_ = 0.0;          // step from stamp to stamp; 0: not known yet
    std::int64_t newestTicks_ = 0;  // unwrapped, since the stretch of `pts` began
    std::int64_t ptsBase_ = 0;      // `pts` of that beginning
    std::int64_t greatestPts_ = 0;

    // ---- what was seen
    std::vector<Frame> history_;  // a ring, once it is full
    std::size_t oldest_ = 0;
    Statistics statistics_;
    TimePoint lastPacket_host_;  // of any packet of the stream
    TimePoint lastReport_host_;
    bool silent_ = false;          // the application has been told
    bool reportsMissing_ = false;  // likewise
    bool implausible_ = false;     // likewise
    bool measures_ = false;        // this stream measures `D` for its camera
    bool probeGaveUp_ = false;
};

}  // namespace camclock::receiver
