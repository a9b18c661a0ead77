#include "receiver/StreamSession.h"

#include "receiver/RtpReader.h"
#include "receiver/TimeArithmetic.h"

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

namespace camclock::receiver {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Stamps that step, or reports that disagree, by more than this are of two mappings.
constexpr double kSet_s = 0.5;
/// The library's stable time stamps bear steps of 120 s; an epoch ends before.
constexpr seconds kLongestSilence{100};
/// After such a pause the clocks may have drifted by more than a frame's worth of trust.
constexpr seconds kUnsettling{10};
/// The first count of frames that is the majority of the median's 51.
constexpr std::uint32_t kSettled = 26;
/// A step of one of the camera's clocks that is too small to begin an epoch, and too large for the median to
/// hide.
constexpr milliseconds kSmallStep{20};
/// A report whose stamp lies further from the frames' than this knows nothing of them.
constexpr seconds kOfOneKind{60};
/// The floor line takes stamps that run back for B frames at first; after so many frames it has noticed.
constexpr std::uint32_t kLineNotices = 16;
/// Where threads cannot be had, it is tried again after this.
constexpr seconds kNextTry{1};
constexpr std::size_t kHistory = 256;
/// Of so many sources a report is kept for the first packet.
constexpr std::size_t kEarlyReports = 4;
/// A line without uncertainty may be this far off (`Frame::bound`).
constexpr seconds kLostLine{1};

// A recorder has thousands of them.
static_assert(sizeof(StreamSession) <= 3'072);

std::string Milliseconds(Ticks time) {
    return std::to_string(std::chrono::duration_cast<milliseconds>(time).count()) + " ms";
}

std::string Hexadecimal(std::uint32_t number) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text = "0x";
    for (unsigned shift = 32; shift > 0; shift -= 4)
        text += kDigits[number >> (shift - 4) & 0xFU];
    return text;
}

}  // namespace

StreamSession::StreamSession(std::shared_ptr<CameraState> camera, std::string id, Format format,
                             Stream::Sink sink, TimePoint now_host)
    : camera_(std::move(camera))
    , id_(std::move(id))
    , format_(std::move(format))
    , rate_Hz_(format_.clockRate_Hz != 0 ? format_.clockRate_Hz : 90'000)  // RFC 3551, 5: that of video
    , sink_(std::move(sink))
    , ptsPlace_(camera_->pts.Join())
    , meanLatency_(camera_->MeanLatency())
    , line_(rate_Hz_)
    , lastPacket_host_(now_host)
    , lastReport_host_(now_host) {}

StreamSession::~StreamSession() {
    _EndClock();
    camera_->pts.Leave(ptsPlace_);
}

// ---- what arrives

void StreamSession::TakeRtp(const std::uint8_t* data, std::size_t size, TimePoint arrival_host) {
    const std::optional<RtpPacket> packet = ReadRtp(data, size);
    if (!packet || (format_.payloadType >= 0 && packet->payloadType != format_.payloadType)) {
        ++statistics_.malformed;
        return;
    }
    Arrived arrived;
    arrived.ssrc = packet->SSRC;
    arrived.piece.rtp_ts = packet->RTP_ts;
    arrived.piece.bytes = static_cast<std::uint32_t>(packet->size);
    arrived.piece.arrival_host = arrival_host;
    arrived.piece.seq = packet->seqnum;
    arrived.piece.marker = packet->marker;
    arrived.piece.kind = FrameKindOf(format_.codec, packet->payload, packet->size);
    _Take(arrived);
}

void StreamSession::TakeRtcp(const std::uint8_t* data, std::size_t size, TimePoint arrival_host) {
    if (!ReadRtcp(data, size, rtcp_)) {
        ++statistics_.malformed;
        return;
    }
    for (const SenderReport& report : rtcp_.reports)
        TakeReport({report.SSRC, report.NTP, report.RTP_ts, arrival_host});
    for (const std::uint32_t ssrc : rtcp_.byes)
        source_.Bye(ssrc, arrival_host);
}

void StreamSession::TakeReport(const Report& report) {
    const std::optional<std::uint32_t> source = source_.Source();
    if (source == report.ssrc && pending_ == Cause::kNone) {
        _UseReport(report);
        return;
    }
    // Of a source that may become the stream's with the next packet: the first frame shall have it.
    const bool isForeign = source && source != report.ssrc;
    statistics_.foreign += isForeign ? 1 : 0;
    _KeepEarly(report, isForeign);
}

void StreamSession::TakeFrame(const Frame& assembled) {
    Assembled frame;
    frame.rtp_ts = assembled.rtp_ts;
    frame.seq = assembled.seq;
    frame.arrival_host = assembled.arrived_host;
    frame.kind = {assembled.type, assembled.key};
    frame.packets = assembled.packets;
    frame.bytes = assembled.bytes;
    frame.missing = assembled.complete ? 0 : 1;

    Arrived arrived;
    arrived.ssrc = assembled.ssrc;
    arrived.piece.rtp_ts = frame.rtp_ts;
    arrived.piece.seq = frame.seq;
    arrived.piece.arrival_host = frame.arrival_host;
    arrived.frame = frame;
    _Take(arrived);
}

void StreamSession::_Take(const Arrived& arrived) {
    switch (source_.Take(arrived)) {
    case SourceChoice::Verdict::kOurs:
        ssrc_ = arrived.ssrc;
        _Hand(arrived);
        break;
    case SourceChoice::Verdict::kForeign: ++statistics_.foreign; break;
    case SourceChoice::Verdict::kChanged: {
        Flush();
        assembler_.Restart();
        ssrc_ = arrived.ssrc;
        pending_ = Cause::kSourceChanged;
        _Raise(Event::Kind::kSourceChanged, "another source is received: SSRC " + Hexadecimal(arrived.ssrc));
        const std::vector<Arrived> kept = source_.TakeKept();
        statistics_.foreign -= kept.size() - 1;  // all but the newest had been counted
        for (const Arrived& one : kept)
            _Hand(one);
        break;
    }
    }
}

/// Something of the stream's own source.
void StreamSession::_Hand(const Arrived& arrived) {
    lastPacket_host_ = arrived.piece.arrival_host;
    silent_ = false;
    if (arrived.frame)
        _OnFrame(*arrived.frame);
    else
        assembler_.Add(arrived.piece, [this](const Assembled& frame) { _OnFrame(frame); });
}

void StreamSession::Flush() {
    assembler_.Flush([this](const Assembled& frame) { _OnFrame(frame); });
}

void StreamSession::Restarted() {
    Flush();
    assembler_.Restart();
    source_.Restart();
    early_.clear();
    pending_ = Cause::kRestarted;
}

// ---- one frame

void StreamSession::_OnFrame(const Assembled& frame) {
    const Step step = _StepTo(frame);
    if (step.cause != Cause::kNone)
        _BeginEpoch(step.cause, &frame);
    pending_ = Cause::kNone;
    if (!early_.empty())
        _UseEarly();
    if (started_ && step.arrival > kUnsettling) {
        unsettled_ = kSettled;
        _Raise(Event::Kind::kGap, "nothing came for " + Milliseconds(step.arrival), step.arrival);
    }

    Frame out;
    out.arrived_host = frame.arrival_host;
    out.rtp_ts = frame.rtp_ts;
    out.ssrc = ssrc_;
    out.seq = frame.seq;
    out.type = frame.kind.type;
    out.key = frame.kind.key;
    out.complete = frame.missing == 0;
    out.packets = frame.packets;
    out.bytes = frame.bytes;
    _AnswerByMedian(frame, step, out);
    _AnswerByLine(frame, step, out);
    out.epoch = epoch_;
    _Stamp(frame, step, out);

    hasFrame_ = true;
    started_ = true;
    if (!step.runsBack) {
        newest_ = frame;
        newestMapped_host_ = out.trust == Trust::kArrivalOnly || !median_
                                 ? out.captured_host
                                 : Moved(out.captured_cam, ToTicks(out.D));
    }
    _Remember(out);
    if (sink_)
        sink_(out);
}

StreamSession::Step StreamSession::_StepTo(const Assembled& frame) const {
    Step step;
    if (!started_)
        return step;
    step.arrival = Elapsed(newest_.arrival_host, frame.arrival_host);
    step.rtp = RtpElapsed(newest_.rtp_ts, frame.rtp_ts, rate_Hz_, step.arrival);
    step.cause = pending_;
    if (step.cause == Cause::kNone) {
        // The stamps were set if they jump while the arrivals go on as usual, or go another way than a long
        // silence.
        const double d = static_cast<double>(step.rtp) / static_cast<double>(rate_Hz_);
        const double a = Seconds(step.arrival);
        const double beside = std::abs(d - usual_s_);
        const bool jumps = beside > kSet_s && std::abs(a - usual_s_) < beside / 2;
        const bool parts = step.arrival > kUnsettling && std::abs(d - a) > kSet_s;
        if (step.arrival > kLongestSilence)
            step.cause = Cause::kSilence;
        else if (d < -kSet_s || jumps || parts)
            step.cause = parts && beside <= kSet_s ? Cause::kBacklog : Cause::kStampsSet;
    }
    step.runsBack = step.cause == Cause::kNone && step.rtp <= 0;
    return step;
}

/// The usual step of the stamps: a slow mean that single long steps, of lost frames, hardly move.
void StreamSession::_FollowCadence(const Step& step) {
    const double d = static_cast<double>(step.rtp) / static_cast<double>(rate_Hz_);
    if (usual_s_ == 0.0)
        usual_s_ = d;
    else
        usual_s_ += ((std::min)(d, 2 * usual_s_) - usual_s_) / 16;
}

/// `frame`: the first one of the epoch, if that is what begins it.
void StreamSession::_BeginEpoch(Cause cause, const Assembled* frame) {
    _EndClock();
    if (cause == Cause::kClockStepped)
        expectedD_.reset();
    // A report of the stamps as they are now may have come before the first such frame.
    std::optional<Report> first;
    if (cause == Cause::kStampsSet && reports_.Last() && _Fits(*reports_.Last(), *frame, milliseconds(500)))
        first = reports_.Last();
    reports_.Restart(first);
    unfed_ = first;

    if (cause == Cause::kStampsSet && static_cast<std::int32_t>(frame->rtp_ts - newest_.rtp_ts) < 0)
        lineBehind_ = kLineNotices;
    const bool anotherRtpClock =
        cause == Cause::kSourceChanged || (cause == Cause::kRestarted && !_RtpClockWentOn(*frame));
    if (anotherRtpClock) {
        line_.Restart();
        lineIsDoubtfulAbove_.reset();
        usual_s_ = 0.0;
    }
    ++epoch_;
    synced_ = 0;
    unsettled_ = 0;
    hasFrame_ = false;
    implausible_ = false;
}

bool StreamSession::_RtpClockWentOn(const Assembled& frame) const {
    const std::optional<TimePoint> fastest_host = line_.Map(frame.rtp_ts);
    return fastest_host && newestSsrc_ == ssrc_ &&
           std::abs(Seconds(Elapsed(*fastest_host, frame.arrival_host))) < kSet_s;
}

/// Do the stamps of report and frame lie as far apart as their arrivals?
bool StreamSession::_Fits(const Report& report, const Assembled& frame, Ticks within) const {
    const Ticks arrival = Elapsed(report.arrival_host, frame.arrival_host);
    const std::int64_t rtp = RtpElapsed(report.rtp_ts, frame.rtp_ts, rate_Hz_, arrival);
    const double beside = static_cast<double>(rtp) / static_cast<double>(rate_Hz_) - Seconds(arrival);
    return std::abs(beside) <= Seconds(within);
}

// ---- the median

void StreamSession::_UseReport(const Report& report) {
    const ReportCheck::Verdict verdict = reports_.Check(report, rate_Hz_);
    if (verdict == ReportCheck::Verdict::kImplausible) {
        ++statistics_.implausible;
        if (!std::exchange(implausible_, true))
            _Raise(Event::Kind::kImplausibleReport,
                   report.ntp == 0 ? "a sender report without a time of day is not used"
                                   : "a sender report that does not fit the others is not used",
                   report.ntp == 0 ? Ticks(0) : reports_.Step());
        return;
    }
    if (verdict == ReportCheck::Verdict::kStepped) {
        const Ticks step = reports_.Step();
        _BeginEpoch(Cause::kClockStepped, nullptr);
        reports_.Restart(report);
        _Raise(Event::Kind::kClockStepped, "the camera's clock was set by " + Milliseconds(step), step);
    }
    if (verdict == ReportCheck::Verdict::kUsable)
        _Doubt(reports_.Step());
    const bool first = !median_ && !unfed_;
    ++statistics_.reports;
    lastReport_host_ = report.arrival_host;
    statistics_.lastReport_host = report.arrival_host;
    implausible_ = false;
    reportsMissing_ = false;
    if (median_)
        median_->TakeReport(report);
    else
        unfed_ = report;
    if (first)
        _Raise(Event::Kind::kFirstReport, "the first sender report has come");
}

void StreamSession::_KeepEarly(const Report& report, bool isForeign) {
    const auto older = std::find_if(early_.begin(), early_.end(),
                                    [&](const EarlyReport& one) { return one.report.ssrc == report.ssrc; });
    if (older != early_.end())
        early_.erase(older);
    else if (early_.size() == kEarlyReports)
        early_.erase(early_.begin());
    early_.push_back({report, isForeign});
}

/// The stream's source may have had a report before its first packet.
void StreamSession::_UseEarly() {
    const auto ours = std::find_if(early_.begin(), early_.end(),
                                   [this](const EarlyReport& one) { return one.report.ssrc == ssrc_; });
    if (ours == early_.end())
        return;
    const EarlyReport early = *ours;
    early_.erase(ours);
    statistics_.foreign -= early.isForeign ? 1 : 0;
    _UseReport(early.report);
}

/// Starts the library's part of this epoch, if it can be had now. `frame` comes next. True if it has been fed
/// already.
bool StreamSession::_StartClock(const Assembled& frame) {
    if (camera_->graveyard.IsFull() || (noThreads_ && Elapsed(*noThreads_, frame.arrival_host) < kNextTry))
        return false;
    try {
        meanLatency_ = camera_->MeanLatency();
        auto clock = std::make_unique<MedianClock>(
            MedianClock::Setup{camera_->settings, camera_->name, id_, rate_Hz_, meanLatency_});
        if (camera_->BeginMeasuring(this)) {
            measures_ = true;
            probeGaveUp_ = false;
            clock->Measure(camera_->settings, expectedD_ ? expectedD_ : camera_->settings.expectedDifference);
        }
        median_ = std::move(clock);
        noThreads_.reset();
    } catch (const std::system_error&) {
        camera_->EndMeasuring(this);
        measures_ = false;
        noThreads_ = frame.arrival_host;
        return false;
    }
    // The library's stable time stamps begin with the first frame; a report that knows nothing of the frames
    // must not set that beginning.
    const bool fits = _Fits(*unfed_, frame, kOfOneKind);
    if (hasFrame_)
        median_->Begin({newest_, newestSsrc_, false});
    else if (!fits)
        median_->Begin({frame, ssrc_, false});
    median_->TakeReport(*unfed_);
    unfed_.reset();
    return !hasFrame_ && !fits;
}

/// After a step of one of the camera's clocks the median needs its time.
void StreamSession::_Doubt(Ticks step) {
    if (step > kSmallStep || step < -kSmallStep)
        unsettled_ = kSettled;
}

void StreamSession::_EndClock() {
    if (!median_)
        return;
    expectedD_ = median_->D();
    if (std::exchange(measures_, false))
        camera_->EndMeasuring(this);
    camera_->graveyard.Bury(std::move(median_));
}

void StreamSession::_AnswerByMedian(const Assembled& frame, const Step& step, Frame& out) {
    const milliseconds latency = camera_->MeanLatency();
    const bool fed = unfed_ && !median_ && _StartClock(frame);
    if (!median_ || fed) {
        out.captured_cam = frame.arrival_host;
        out.median_host = (std::min)(frame.arrival_host, Moved(frame.arrival_host, -ToTicks(latency)));
        out.captured_host = out.median_host;
        out.trust = Trust::kArrivalOnly;
        return;
    }
    if (latency != meanLatency_) {
        meanLatency_ = latency;
        median_->SetMeanLatency(latency);
    }
    const std::optional<CameraState::Measured> measured = measures_ ? std::nullopt : camera_->MeasuredD();
    const MedianClock::Answer answer =
        step.runsBack ? median_->Map(frame.rtp_ts, frame.arrival_host)
                      : median_->Take({frame, out.ssrc, true},
                                      measured ? std::optional<milliseconds>(measured->D) : std::nullopt);
    out.captured_cam = answer.captured_cam;
    out.captured_host = answer.captured_host;
    out.median_host = answer.captured_host;
    out.D = answer.D;
    if (measured)
        out.uncertainty = measured->uncertainty;
    else if (measures_ && median_->MeasuredD())
        out.uncertainty = median_->MeasuredUncertainty();
    // Only B frames run back: what else does was stamped by a clock that was set.
    if (step.rtp < 0 && step.runsBack &&
        (frame.kind.type == MediaPacket::kFrameI || frame.kind.type == MediaPacket::kFrameP))
        unsettled_ = kSettled;
    out.trust = answer.replaced                        ? Trust::kReplaced
                : synced_ < kSettled || unsettled_ > 0 ? Trust::kSettling
                                                       : Trust::kGood;
    if (!step.runsBack) {
        synced_ += synced_ < kSettled ? 1 : 0;
        unsettled_ -= unsettled_ > 0 ? 1 : 0;
    }
}

// ---- the floor line

void StreamSession::_AnswerByLine(const Assembled& frame, const Step& step, Frame& out) {
    const FloorLine::Answer line = line_.Feed(frame.arrival_host, frame.rtp_ts);
    const TimePoint captured = Moved(line.fastest_host, -ToTicks(camera_->LeastLatency()));
    const bool isDoubtful = _IsDoubtful(line, step);
    lineBehind_ -= lineBehind_ > 0 ? 1 : 0;
    if (line.happened && line_.LastEvent().kind == FloorLine::Event::Kind::kSet)
        lineBehind_ = 0;
    const bool known = line.uncertainty && lineBehind_ == 0;
    out.precise_host = known ? (std::min)(captured, frame.arrival_host) : out.median_host;
    if (camera_->settings.cameraDelay)
        _Bound(line, out);
    if (line.happened && line_.LastEvent().kind == FloorLine::Event::Kind::kSet)
        _Doubt(ToTicks(line_.LastEvent().size));
    if (line.happened && line_.LastEvent().IsRouteChange()) {
        const Ticks size = ToTicks(line_.LastEvent().size);
        _Raise(Event::Kind::kRouteChanged, "the way through the network changed by " + Milliseconds(size),
               size);
    }
    if (camera_->settings.estimator != Estimator::kFloorLine || !known)
        return;  // the answer is left to the median
    out.captured_host = out.precise_host;
    out.uncertainty = line.uncertainty;
    out.trust = captured > frame.arrival_host ? Trust::kReplaced
                : line.settled && !isDoubtful ? Trust::kGood
                                              : Trust::kSettling;
}

/// Where a frame was lost when the stamps were set, the line may lie a frame's time beside, until a block has
/// shown it: then its uncertainty falls again.
bool StreamSession::_IsDoubtful(const FloorLine::Answer& line, const Step& step) {
    const microseconds before = std::exchange(lineUncertainty_, line.uncertainty.value_or(microseconds(0)));
    const bool wasSet = line.happened && line_.LastEvent().kind == FloorLine::Event::Kind::kSet;
    lostAtSet_ = Seconds(step.arrival) > 1.5 * usual_s_ || (lostAtSet_ && lineBehind_ > 0);
    if (wasSet && lostAtSet_)
        lineIsDoubtfulAbove_ = before + (lineUncertainty_ - before) / 2;
    if (lineIsDoubtfulAbove_ && lineUncertainty_ <= *lineIsDoubtfulAbove_ && !wasSet)
        lineIsDoubtfulAbove_.reset();
    return lineIsDoubtfulAbove_.has_value();
}

/// No statistics in its end; its beginning supposes that the fastest frames took no longer than the least
/// round trip.
void StreamSession::_Bound(const FloorLine::Answer& line, Frame& out) const {
    const auto& [least, most] = *camera_->settings.cameraDelay;
    const TimePoint latest = Moved(line.latest_host, -ToTicks(least));
    Ticks before = line.uncertainty ? ToTicks(*line.uncertainty) : Ticks(kLostLine);
    before = Ticks(SaturatingAdd(before.count(), ToTicks(most).count()));
    before = Ticks(SaturatingAdd(before.count(), ToTicks(camera_->LeastRoundTrip()).count()));
    const TimePoint earliest = Moved(line.fastest_host, Ticks(SaturatingNegate(before.count())));
    out.bound = std::pair((std::min)(earliest, latest), latest);
}

// ---- presentation time, and what is remembered

void StreamSession::_Stamp(const Assembled& frame, const Step& step, Frame& out) {
    // The median's answer, since its errors have no side: what many epochs add up stays small.
    const TimePoint captured = out.median_host;
    std::int64_t ticks = 0;
    // What was held up has stamps that go on; its arrivals say nothing.
    if (!started_ || (step.cause != Cause::kNone && step.cause != Cause::kBacklog)) {
        ptsBase_ = camera_->pts.Begin(ptsPlace_, captured, frame.arrival_host, rate_Hz_);
        if (started_)
            ptsBase_ = (std::max)(ptsBase_, SaturatingAdd(greatestPts_, 1));
        greatestPts_ = ptsBase_;
    } else {
        ticks = SaturatingAdd(newestTicks_, step.rtp);
        if (!step.runsBack)
            _FollowCadence(step);
    }
    out.pts = SaturatingAdd(ptsBase_, ticks);
    if (step.runsBack)
        return;
    newestTicks_ = ticks;
    greatestPts_ = out.pts;
    newestSsrc_ = out.ssrc;
    camera_->pts.Write(ptsPlace_, {captured, frame.arrival_host, out.pts, rate_Hz_});
}

void StreamSession::_Remember(const Frame& frame) {
    ++statistics_.frames;
    statistics_.packets += frame.packets;
    statistics_.bytes += frame.bytes;
    statistics_.replaced += frame.trust == Trust::kReplaced ? 1 : 0;
    statistics_.D = frame.D;
    if (history_.size() < kHistory) {
        history_.push_back(frame);
        return;
    }
    history_[oldest_] = frame;
    oldest_ = (oldest_ + 1) % kHistory;
}

// ---- questions

void StreamSession::Poll(TimePoint now_host) {
    assembler_.Poll(now_host, [this](const Assembled& frame) { _OnFrame(frame); });

    const Settings& settings = camera_->settings;
    const Ticks silence = Elapsed(lastPacket_host_, now_host);
    if (!silent_ && silence > ToTicks(settings.packetTimeOut)) {
        silent_ = true;
        _Raise(Event::Kind::kSilent, "nothing has come for " + Milliseconds(silence), silence);
    }
    const Ticks withoutReport = Elapsed(lastReport_host_, now_host);
    if (settings.requireReports && !reportsMissing_ && withoutReport > ToTicks(settings.reportTimeOut)) {
        reportsMissing_ = true;
        _Raise(Event::Kind::kReportsMissing, "no sender report has come for " + Milliseconds(withoutReport),
               withoutReport);
    }
    _PollMeasuring();
}

void StreamSession::_PollMeasuring() {
    if (!median_ || camera_->settings.icmpHost.empty())
        return;
    if (!measures_ && camera_->BeginMeasuring(this)) {
        // The stream that measured has gone.
        try {
            median_->Measure(camera_->settings, median_->D());
            measures_ = true;
            probeGaveUp_ = false;
        } catch (const std::system_error&) {
            camera_->EndMeasuring(this);  // no thread to be had now
        }
    }
    if (!measures_)
        return;
    camera_->WriteMeasured(this, median_->MeasuredD(), median_->MeasuredUncertainty());
    if (median_->ProbeGaveUp() && !std::exchange(probeGaveUp_, true))
        _Raise(Event::Kind::kProbeGaveUp,
               "ICMP time stamps are not answered: the clock difference is estimated");
}

std::optional<Frame> StreamSession::Find(std::uint32_t rtp_ts) const {
    for (std::size_t i = history_.size(); i > 0; --i) {
        const Frame& frame = history_[(oldest_ + i - 1) % history_.size()];
        if (frame.rtp_ts == rtp_ts)
            return frame;
    }
    return std::nullopt;
}

std::optional<TimePoint> StreamSession::Map(std::uint32_t rtp_ts) const {
    if (!started_)
        return std::nullopt;
    if (camera_->settings.estimator == Estimator::kFloorLine) {
        if (const std::optional<TimePoint> fastest_host = line_.Map(rtp_ts))
            return Moved(*fastest_host, -ToTicks(camera_->LeastLatency()));
    }
    const auto distance = static_cast<std::int32_t>(rtp_ts - newest_.rtp_ts);
    const double ticks = static_cast<double>(distance) / static_cast<double>(rate_Hz_) * 1e7;
    return Moved(newestMapped_host_, Ticks(ToInt64(ticks)));
}

Statistics StreamSession::Snapshot() const {
    Statistics statistics = statistics_;
    statistics.lost = assembler_.Lost();
    statistics.late = assembler_.Late();
    if (const auto measured = camera_->MeasuredD())
        statistics.D_uncert = measured->uncertainty;
    std::vector<std::chrono::microseconds> latencies;
    latencies.reserve(history_.size());
    for (const Frame& frame : history_)
        latencies.push_back(std::chrono::duration_cast<std::chrono::microseconds>(
            Elapsed(frame.captured_host, frame.arrived_host)));
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        statistics.latency_p50 = latencies[latencies.size() / 2];
        statistics.latency_p95 = latencies[latencies.size() * 95 / 100];
    }
    statistics.queue = line_.Queue();
    statistics.skew_ppm = line_.SkewPpm();
    statistics.epoch = epoch_;
    return statistics;
}

void StreamSession::_Raise(Event::Kind kind, const std::string& text, Ticks size) const {
    camera_->Raise(kind, id_, text, size);
}

}  // namespace camclock::receiver
