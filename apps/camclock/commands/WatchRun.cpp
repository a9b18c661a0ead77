#include "apps/camclock/commands/WatchRun.h"

#include "apps/camclock/views/FrameWriter.h"
#include "apps/camclock/views/Terminal.h"
#include "receiver/HostClock.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace camclock::app {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};

const char* TransportText(Transport transport) {
    switch (transport) {
    case Transport::kUdp: return "udp";
    case Transport::kTcp: return "tcp";
    case Transport::kAuto: break;
    }
    return "auto";
}

const char* StateText(CameraWatch::State state) {
    switch (state) {
    case CameraWatch::State::kConnecting: return "connecting";
    case CameraWatch::State::kReceiving: return "receiving";
    case CameraWatch::State::kWaiting: return "waiting";
    case CameraWatch::State::kEnded: break;
    }
    return "ended";
}

const char* CodecText(receiver::Codec codec) {
    return codec == receiver::Codec::kH264 ? "H.264" : "MPEG-4 Visual";
}

void PrintLines(std::FILE* file, const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        fmt::print(file, "{}\n", line);
}

}  // namespace

WatchRun::WatchRun(WatchPlan plan, Observer observer)
    : plan_(std::move(plan))
    , observer_(std::move(observer))
    , statistics_(plan_.targets.size())
    , view_(Terminal::IsInteractive() && !plan_.logsToTerminal) {
    int number = 0;
    for (const WatchPlan::Target& target : plan_.targets) {
        ConnectionSettings connection = plan_.connection;
        connection.transport = target.transport;
        ++number;
        cameras_.push_back(std::make_unique<CameraWatch>(number, target.url, _TimingOf(number), connection,
                                                         [this](const FrameRow& row) { queue_.Push(row); }));
    }
}

TimingSettings WatchRun::_TimingOf(int camera) const {
    TimingSettings timing = plan_.timing;
    if (plan_.targets.size() > 1 && !timing.probeLogDirectory.empty()) {
        // The probe log's name is always the same, so that each camera gets a directory of its own.
        const auto own = std::filesystem::path(timing.probeLogDirectory) / std::to_string(camera);
        std::error_code ignored;
        std::filesystem::create_directories(own, ignored);
        timing.probeLogDirectory = own.string();
    }
    return timing;
}

WatchRun::~WatchRun() = default;

ExitCode WatchRun::Run() {
    using Clock = CameraWatch::Clock;
    if (plan_.format == OutputFormat::kCsv && !plan_.quiet)
        fmt::print("{}\n", CsvHeader());

    const Clock::time_point start = Clock::now();
    Clock::time_point nextTable = start + view_.FirstAfter();
    for (const auto& camera : cameras_)
        camera->Start(start);

    ExitCode result = ExitCode::kSuccess;
    const auto running = [](const auto& camera) { return camera->GetState() != CameraWatch::State::kEnded; };
    while (!Terminal::Interrupted() && std::any_of(cameras_.begin(), cameras_.end(), running)) {
        const Clock::time_point now = Clock::now();
        if (plan_.duration && now - start >= *plan_.duration)
            break;
        const ExitCode ended = _PollCameras(now);
        if (result == ExitCode::kSuccess)
            result = ended;
        if (now >= nextTable && plan_.format == OutputFormat::kTable && !plan_.quiet) {
            _ShowTable();
            nextTable = now + view_.Interval();
        }
        _TakeRows(kPollInterval);
    }

    // A camera that was waiting to try again when the time was over has failed all the same.
    for (const auto& camera : cameras_) {
        if (camera->LastFailure() && result == ExitCode::kSuccess)
            result = camera->LastFailure()->code;
        camera->Stop();
    }
    _TakeRows(std::chrono::milliseconds(0));
    view_.Clear();
    const auto anyFrame = [](const StreamStatistics& statistics) { return statistics.Frames() > 0; };
    if (!plan_.quiet && std::any_of(statistics_.begin(), statistics_.end(), anyFrame))
        _Summarise();
    return result;
}

/// The failure of the first camera that ended just now.
ExitCode WatchRun::_PollCameras(CameraWatch::Clock::time_point now) {
    ExitCode result = ExitCode::kSuccess;
    for (const auto& camera : cameras_) {
        const std::optional<std::string> news = camera->Poll(now);
        if (!news)
            continue;
        view_.News(*news);
        if (camera->GetState() == CameraWatch::State::kEnded && result == ExitCode::kSuccess)
            result = camera->LastFailure()->code;
    }
    return result;
}

void WatchRun::_TakeRows(std::chrono::milliseconds timeOut) {
    for (const FrameRow& row : queue_.Take(timeOut)) {
        const auto index = static_cast<std::size_t>(row.stream - 1);
        statistics_[index].Add(row);
        if (observer_)
            observer_(row, *cameras_[index]);
        if (!plan_.quiet)
            _Print(row);
    }
    if (plan_.format != OutputFormat::kTable)
        std::fflush(stdout);
}

void WatchRun::_Print(const FrameRow& row) const {
    switch (plan_.format) {
    case OutputFormat::kTable: break;
    case OutputFormat::kCsv: fmt::print("{}\n", CsvLine(row)); break;
    case OutputFormat::kJson: fmt::print("{}\n", JsonLine(row)); break;
    }
}

void WatchRun::_ShowTable() {
    view_.Show(LiveTable(_Lines(), receiver::HostClock::Now()));
}

void WatchRun::_Summarise() {
    std::FILE* file = plan_.format == OutputFormat::kTable ? stdout : stderr;
    std::vector<CameraLine> lines = _Lines();
    for (std::size_t i = 0; i < lines.size(); ++i)
        lines[i].state = cameras_[i]->LastFailure() ? cameras_[i]->LastFailure()->what : "";
    PrintLines(file, SummaryTable(lines));
    PrintLines(file, IcmpSummary(lines));
    if (queue_.Dropped() > 0)
        fmt::print(file, "{} frames were not printed: standard output could not keep up\n", queue_.Dropped());
}

std::vector<CameraLine> WatchRun::_Lines() {
    std::vector<CameraLine> lines;
    for (std::size_t i = 0; i < cameras_.size(); ++i) {
        CameraWatch& camera = *cameras_[i];
        CameraLine line;
        line.number = static_cast<int>(i) + 1;
        line.label = camera.Url().label;
        line.transport = TransportText(camera.GetTransport());
        line.state = StateText(camera.GetState());
        if (const std::optional<StreamFormat> format = camera.Format())
            line.codec = CodecText(format->codec);
        if (const std::optional<receiver::PictureFormat> picture = camera.Picture())
            line.size = receiver::PictureText(*picture);
        line.statistics = &statistics_[i];
        line.icmp = camera.WithIcmp();
        line.meanLatency = plan_.timing.meanLatency;
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace camclock::app
