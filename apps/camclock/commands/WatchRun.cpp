#include "apps/camclock/commands/WatchRun.h"

#include "apps/camclock/commands/LogSetup.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/StreamTable.h"
#include "apps/camclock/views/Terminal.h"
#include "apps/camclock/views/TextTable.h"
#include "receiver/CodecTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;
using Clock = CameraWatch::Clock;

constexpr milliseconds kPollInterval{50};
constexpr milliseconds kLongestClosing{500};

/// A stream without a frame for so long is shown as stalled: two key frames' distance of a usual camera.
constexpr std::chrono::seconds kStalled{2};

/// While so much waits to be taken by a slow reader, frames wait in the queue, where the oldest are dropped.
constexpr std::size_t kMostPending = 65'536;

std::string CodecText(const receiver::Format& format) {
    return format.encoding.empty() ? "?" : std::string(receiver::NameForPeople(format.encoding));
}

}  // namespace

WatchRun::WatchRun(WatchPlan plan, Observer observer)
    : plan_(std::move(plan))
    , observer_(std::move(observer)) {
    if (!plan_.quiet)
        sink_ = MakeRowSink(plan_.format, Terminal::IsInteractive() && !plan_.logsToTerminal);
    const int pictures = static_cast<int>(plan_.targets.size());
    for (std::size_t i = 0; i < plan_.targets.size(); ++i) {
        const WatchPlan::Target& target = plan_.targets[i];
        ConnectionSettings connection = plan_.connection;
        connection.transport = target.transport;
        CameraWatch::Numbers numbers{static_cast<int>(i) + 1, std::nullopt};
        if (connection.audio)
            numbers.audio = pictures + numbers.video;
        const TimingSettings& timing = plan_.timing;
        cameras_.push_back(std::make_unique<CameraWatch>(
            target.camera, _CameraOf(i), numbers, target.url, connection,
            timing.requireReports ? std::optional(timing.camera.reportTimeOut) : std::nullopt,
            [url = target.url, connection](Worker& worker, PacketSource::Taker taker) {
                return std::make_unique<RtspReceiver>(url, connection, worker, std::move(taker));
            },
            [this](const FrameRow& row) { queue_.Push(row); }));
    }
    for (const char* media : {"video", "audio"})
        for (const auto& camera : cameras_)
            if (media == std::string("video") || plan_.connection.audio)
                streams_.push_back(
                    {camera.get(), {static_cast<int>(streams_.size()) + 1, camera->Name(), media}, {}, {}});
}

std::shared_ptr<receiver::Camera> WatchRun::_CameraOf(std::size_t index) {
    const WatchPlan::Target& target = plan_.targets[index];
    if (target.named && named_.count(target.camera) > 0)
        return named_[target.camera];
    receiver::Settings settings = plan_.timing.camera;
    if (plan_.timing.icmp && !target.url.ipv6)
        settings.icmpHost = target.url.host;
    if (plan_.targets.size() > 1 && !settings.probeLogDirectory.empty()) {
        // The probe log's name is always the same, so that each camera gets a directory of its own.
        const auto own = std::filesystem::path(settings.probeLogDirectory) / std::to_string(index + 1);
        std::error_code ignored;
        std::filesystem::create_directories(own, ignored);
        settings.probeLogDirectory = own.string();
    }
    auto camera =
        std::make_shared<receiver::Camera>(target.camera, settings, [this](const receiver::Event& event) {
            const std::lock_guard<std::mutex> guard(eventsMutex_);
            events_.push_back(event);
        });
    if (target.named)
        named_[target.camera] = camera;
    return camera;
}

WatchRun::~WatchRun() = default;

ExitCode WatchRun::Run() {
    if (sink_)
        sink_->Begin();
    const Clock::time_point start = Clock::now();
    for (const auto& camera : cameras_) {
        if (plan_.timing.icmp && camera->Url().ipv6)
            _Tell(camera->Name() + ": ICMP needs IPv4; going on with the latency estimate");
        camera->Start(start);
    }

    const auto running = [](const auto& camera) { return camera->GetState() != CameraWatch::State::kEnded; };
    bool timeIsOver = false;
    while (!Terminal::Interrupted() && !ended_ && !timeIsOver &&
           std::any_of(cameras_.begin(), cameras_.end(), running)) {
        const Clock::time_point now = Clock::now();
        timeIsOver = plan_.duration && now - start >= *plan_.duration;
        _Poll(now);
        if (sink_)
            sink_->Tick(now, [this] { return _Lines(); });
        _TakeRows(kPollInterval);
        _CheckOutputs(now);
    }

    // A camera that was waiting to try again when the time was over has failed all the same.
    for (const auto& camera : cameras_)
        if (camera->LastFailure() && result_ == ExitCode::kSuccess)
            result_ = camera->LastFailure()->code;
    _Stop();
    if (timeIsOver)
        _CheckForFrames();
    if (sink_) {
        sink_->End();
        if (!Output::Standard().ReaderGone())
            _Summarise();
    }
    _Close();
    return result_;
}

void WatchRun::_Fail(const Failure& failure) {
    if (result_ == ExitCode::kSuccess)
        result_ = failure.code;
}

void WatchRun::_Tell(const std::string& news) {
    if (sink_)
        sink_->News(news);
    else
        Output::Error().Line("camclock: " + news);
}

void WatchRun::_Poll(Clock::time_point now) {
    for (const auto& camera : cameras_) {
        camera->Camera().Poll();
        _TakeEvents();
        for (const std::string& news : camera->Poll(now))
            _Tell(news);
        if (camera->GetState() == CameraWatch::State::kEnded && camera->LastFailure())
            _Fail(*camera->LastFailure());
    }
}

/// A stream that has fallen silent is its watch's to tell; the usual is not news.
void WatchRun::_TakeEvents() {
    std::vector<receiver::Event> events;
    {
        const std::lock_guard<std::mutex> guard(eventsMutex_);
        events.swap(events_);
    }
    for (const receiver::Event& event : events) {
        if (event.kind == receiver::Event::Kind::kSilent) {
            for (const auto& camera : cameras_)
                if (camera->Name() == event.camera)
                    camera->OnSilence(event.stream);
        } else if (event.kind != receiver::Event::Kind::kFirstReport) {
            _Tell(event.text);
        }
    }
}

/// A watch that can no longer tell anybody ends at once.
void WatchRun::_CheckOutputs(Clock::time_point now) {
    std::optional<Failure> trouble = Output::Standard().Trouble();
    if (!trouble)
        trouble = Output::Error().Trouble();
    if (!trouble)
        trouble = LogTrouble();
    if (!trouble && now >= nextDiskCheck_) {
        nextDiskCheck_ = now + milliseconds(500);
        for (const std::string& directory :
             {plan_.timing.camera.timingLogDirectory, plan_.timing.camera.probeLogDirectory})
            if (auto full = CheckRoom(directory))
                trouble = full;
    }
    if (trouble && !ended_) {
        Report(*trouble);
        result_ = trouble->code;
    }
    ended_ = ended_ || trouble || Output::Standard().ReaderGone();
}

/// A camera that has not failed, but gave nothing in the time that it had, has failed.
void WatchRun::_CheckForFrames() {
    for (const Stream& stream : streams_) {
        if (stream.statistics.Frames() > 0 || stream.name.media != "video" || stream.camera->LastFailure())
            continue;
        const Failure failure{
            ExitCode::kTimeOut,
            fmt::format("{}: time-out: no frame within {} ms", stream.name.camera, plan_.duration->count()),
            "let it run longer with --duration"};
        _Tell(failure.Text());
        _Fail(failure);
    }
}

void WatchRun::_Stop() {
    for (const auto& camera : cameras_)
        camera->Stop();
    _TakeRows(milliseconds(0));
    _TakeEvents();
}

/// Where the clock difference is measured, a camera takes more than a second to go, too.
void WatchRun::_Close() {
    const Clock::time_point deadline = Clock::now() + kLongestClosing;
    for (const auto& camera : cameras_)
        stuck_ = !camera->WaitUntilClosed(deadline) || stuck_;
    stuck_ = stuck_ || plan_.timing.icmp;
}

void WatchRun::_TakeRows(milliseconds timeOut) {
    const Clock::time_point start = Clock::now();
    Output::Error().Flush(milliseconds(0));
    const bool drained = Output::Standard().Flush(timeOut) || Output::Standard().Pending() < kMostPending;
    const auto left = std::chrono::duration_cast<milliseconds>(start + timeOut - Clock::now());
    if (!drained)
        return;
    for (const FrameRow& row : queue_.Take(std::max(left, milliseconds(0)))) {
        Stream& stream = streams_[static_cast<std::size_t>(row.stream - 1)];
        stream.statistics.Add(row);
        stream.lastFrame = start;
        if (observer_)
            observer_(row, *stream.camera);
        if (sink_)
            sink_->Add(row, stream.name);
    }
    Output::Standard().Flush(milliseconds(0));
}

void WatchRun::_Summarise() {
    if (plan_.summary == SummaryFormat::kNone)
        return;
    const auto anyFrame = [](const Stream& stream) { return stream.statistics.Frames() > 0; };
    if (plan_.summary == SummaryFormat::kText && std::none_of(streams_.begin(), streams_.end(), anyFrame))
        return;
    const bool toOutput = plan_.format == OutputFormat::kTable;
    Output& output = toOutput ? Output::Standard() : Output::Error();
    std::vector<StreamLine> lines = _Lines();
    if (plan_.summary == SummaryFormat::kJson) {
        output.Line(SummaryJson(lines));
        return;
    }
    const bool onScreen = toOutput && Terminal::IsInteractive();
    const std::size_t width = onScreen ? Terminal::GetSize().columns : TextTable::kUnlimited;
    for (const std::string& line : SummaryTable(lines, width))
        output.Line(line);
    for (const std::string& line : IcmpSummary(lines))
        output.Line(line);
    if (queue_.Dropped() > 0)
        output.Line(
            fmt::format("{} frames were not printed: standard output could not keep up", queue_.Dropped()));
}

std::string WatchRun::_StateText(const Stream& stream) {
    switch (stream.camera->GetState()) {
    case CameraWatch::State::kConnecting: return "connecting";
    case CameraWatch::State::kReceiving: break;
    case CameraWatch::State::kWaiting: return "waiting";
    case CameraWatch::State::kEnded: return "ended";
    }
    if (!stream.lastFrame)
        return "no frame";
    const auto silence = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *stream.lastFrame);
    return silence < kStalled ? "receiving" : fmt::format("STALLED {}s", silence.count());
}

std::vector<StreamLine> WatchRun::_Lines() const {
    std::vector<StreamLine> lines;
    for (const Stream& stream : streams_) {
        CameraWatch& camera = *stream.camera;
        StreamLine line;
        line.name = stream.name;
        line.url = camera.Url().label;
        line.transport = camera.Road();
        line.state = _StateText(stream);
        if (const auto facts = camera.Facts(stream.name.number)) {
            line.codec = CodecText(facts->format);
            line.counts = facts->statistics;
            if (facts->picture)
                line.size = receiver::PictureText(*facts->picture);
        }
        if (camera.LastFailure() && stream.name.media == "video")
            line.failure = camera.LastFailure()->what;
        line.statistics = &stream.statistics;
        line.icmp = plan_.timing.icmp && !camera.Url().ipv6 && stream.name.media == "video";
        line.meanLatency = plan_.timing.camera.meanLatency;
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace camclock::app
