#include "apps/camclock/commands/Commands.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/sources/CameraWatch.h"
#include "apps/camclock/sources/EchoPing.h"
#include "apps/camclock/sources/PictureGrabber.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/views/BigDigits.h"
#include "apps/camclock/views/Calibration.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/Statistics.h"
#include "apps/camclock/views/Terminal.h"

#include <camclock/Receiver.h>

#include <CLI/CLI.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace camclock::app {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = CameraWatch::Clock;

/// The clock is drawn far more often than a screen is refreshed: what it shows is then no older than this
/// when the screen takes it.
constexpr milliseconds kRedraw{4};
constexpr milliseconds kPollInterval{50};

/// The last pictures are still being decoded when the time is over.
constexpr std::chrono::seconds kLongestDecoding{5};
constexpr milliseconds kLongestClosing{500};

struct CalibrateOptions {
    std::string url;
    AccessOptions access;
    ConnectionSettings connection;
    int pings = 50;
    int frames = 25;
    double duration_s = 60.0;
    double refresh_Hz = 60.0;
    bool noClock = false;
    std::string output;
    std::string readings;
    LogSettings log;
};

std::tm LocalTime(TimePoint time) {
    const auto seconds = static_cast<std::time_t>(
        std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count());
    return fmt::localtime(seconds);
}

/// The host's local time less UTC.
std::chrono::seconds UtcOffset(TimePoint time) {
    return std::chrono::seconds(LocalTime(time).tm_gmtoff);
}

Failure CannotWrite(const fs::path& what) {
    return {ExitCode::kOutput, fmt::format("cannot write {}", what.string()),
            "make room, or choose another directory with --output"};
}

std::optional<Failure> WriteFile(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    return out ? std::nullopt : std::optional(CannotWrite(file));
}

/// What the network takes of the latency, as far as that can be had.
std::string NetworkText(const std::string& host, int pings) {
    const EchoResult echo = PingHost(host, pings, &Terminal::Interrupted);
    if (!echo.least)
        return fmt::format("network: not measured: {}", echo.trouble);
    const double least_ms = static_cast<double>(echo.least->count()) / 1e6;
    return fmt::format("network: {:.3f} ms at least one way, half the least of {} round trips ({} pings); "
                       "0 to {:.3f} ms if the ways differ",
                       least_ms / 2.0, echo.answered, echo.sent, least_ms);
}

/// The clock to film, in the middle of nothing else.
class ScreenClock {
public:
    ScreenClock() { Output::Standard().Raw("\x1b[2J\x1b[?25l"); }
    ~ScreenClock() { Output::Standard().Raw("\x1b[2J\x1b[H\x1b[?25h"); }
    ScreenClock(const ScreenClock&) = delete;
    ScreenClock& operator=(const ScreenClock&) = delete;

    /// What a slow terminal has not taken is not drawn over: it would show ever older times.
    static void Draw(std::size_t made, int wanted) {
        Output& output = Output::Standard();
        output.Flush(milliseconds(0));
        if (output.Pending() > 0)
            return;
        const TimePoint now = receiver::Now();
        const std::tm local = LocalTime(now);
        const auto ms = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
        std::string text = "\x1b[H\r\n";
        for (const std::string& line :
             BigDigits(fmt::format("{:02}:{:02}.{:03}", local.tm_min, local.tm_sec, ms)))
            text += "  " + line + "\r\n";
        text += fmt::format("\r\n  Film this clock. {} of {} pictures; Ctrl-C ends.\x1b[K", made, wanted);
        output.Raw(text);
        output.Flush(milliseconds(0));
    }
};

/// Films: connects, writes pictures as they are made, and knows when their frames arrived.
class Filming {
public:
    Filming(const CalibrateOptions& options, const StreamUrl& url, fs::path directory)
        : options_(options)
        , directory_(std::move(directory))
        , duration_(static_cast<std::int64_t>(options.duration_s * 1000.0))
        , grabber_(options.frames, duration_)
        , camera_(std::make_shared<receiver::Camera>(url.label, _Settings(),
                                                     [this](const receiver::Event& event) {
                                                         silent_ =
                                                             silent_ ||
                                                             event.kind == receiver::Event::Kind::kSilent;
                                                     }))
        , watch_(
              url.label, camera_, {}, url, options.connection, std::nullopt,
              [this, url](Worker& worker, PacketSource::Taker taker) {
                  return std::make_unique<RtspReceiver>(url, options_.connection, worker, std::move(taker),
                                                        &grabber_);
              },
              [this](const FrameRow& row) { _Take(row.frame); }) {}

    /// Until all pictures are there, or something is wrong.
    ExitCode Run() {
        std::optional<ScreenClock> clock;
        if (!options_.noClock && Terminal::IsInteractive())
            clock.emplace();
        watch_.Start(Clock::now());
        ExitCode result = ExitCode::kSuccess;
        Clock::time_point nextPoll = Clock::now();
        while (!Terminal::Interrupted() && result == ExitCode::kSuccess && !_IsOver(Clock::now())) {
            std::this_thread::sleep_for(clock ? kRedraw : kPollInterval);
            if (clock)
                ScreenClock::Draw(made_.size(), options_.frames);
            if (Clock::now() < nextPoll)
                continue;
            nextPoll = Clock::now() + kPollInterval;
            result = _Poll(clock);
        }
        watch_.Stop();
        return result;
    }

    /// True when the connection is closed for good.
    bool Closed() { return watch_.WaitUntilClosed(Clock::now() + kLongestClosing); }

    /// After `Run`: the pictures whose frames are known.
    std::vector<CalibrationPicture> Pictures() {
        std::vector<CalibrationPicture> pictures;
        const std::lock_guard<std::mutex> guard(mutex_);
        for (const auto& [number, RTP_ts] : made_)
            if (const auto found = frames_.find(RTP_ts); found != frames_.end())
                pictures.push_back(
                    {number, RTP_ts, found->second.precise_host, found->second.arrived_host, std::nullopt});
        return pictures;
    }

    /// By so much more than the fastest frame waits the usual one: the median.
    double Wait_ms() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return Percentile(waits_ms_, 0.5);
    }

private:
    struct Times {
        TimePoint precise_host{};
        TimePoint arrived_host{};
    };

    /// With latencies of 0 the answers are times of arrival.
    static receiver::Settings _Settings() {
        receiver::Settings settings;
        settings.meanLatency = milliseconds(0);
        settings.leastLatency = std::chrono::microseconds(0);
        return settings;
    }

    /// On a receiving thread.
    void _Take(const receiver::Frame& frame) {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!first_)
            first_ = Clock::now();
        frames_[frame.rtp_ts] = {frame.precise_host, frame.arrived_host};
        waits_ms_.push_back(static_cast<double>((frame.arrived_host - frame.precise_host).count()) / 1e4);
    }

    bool _IsOver(Clock::time_point now) {
        const std::lock_guard<std::mutex> guard(mutex_);
        return made_.size() >= static_cast<std::size_t>(options_.frames) ||
               (first_ && now > *first_ + duration_ + kLongestDecoding);
    }

    ExitCode _Poll(std::optional<ScreenClock>& clock) {
        camera_->Poll();
        if (silent_.exchange(false))
            watch_.OnSilence(watch_.StreamId("video"));
        std::vector<std::string> news = watch_.Poll(Clock::now());
        for (const PictureGrabber::Picture& picture : grabber_.Take()) {
            const int number = static_cast<int>(made_.size()) + 1;
            if (const auto failure = WriteFile(directory_ / PictureFile(number), picture.png)) {
                clock.reset();
                return Report(*failure);
            }
            made_.emplace_back(number, picture.rtp_ts);
        }
        if (!news.empty())
            clock.reset();
        for (const std::string& line : news)
            Output::Error().Line("camclock: " + line);
        if (watch_.GetState() == CameraWatch::State::kEnded && watch_.LastFailure())
            return watch_.LastFailure()->code;
        return ExitCode::kSuccess;
    }

    const CalibrateOptions& options_;
    const fs::path directory_;
    const milliseconds duration_;
    PictureGrabber grabber_;
    std::vector<std::pair<int, std::uint32_t>> made_;  // number and RTP time stamp of each file
    std::atomic<bool> silent_{false};

    std::mutex mutex_;  // guards what the receiving thread writes below
    std::optional<Clock::time_point> first_;
    std::unordered_map<std::uint32_t, Times> frames_;
    std::vector<double> waits_ms_;

    std::shared_ptr<receiver::Camera> camera_;
    CameraWatch watch_;  // destroyed first: nothing arrives after it
};

void SetShown(CalibrationPicture& picture, const ClockReading& reading) {
    picture.shown_host = NearestInstant(reading, picture.precise_host, UtcOffset(picture.precise_host));
}

/// From a file, or from whoever looks at the pictures.
std::optional<Failure> ReadFromFile(const std::string& name, std::vector<CalibrationPicture>& pictures) {
    std::ifstream file(name);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad() || !file.is_open())
        return Failure{ExitCode::kUsage, fmt::format("cannot read {}", name),
                       "--readings takes the name of a file"};
    int line = 0;
    const auto readings = ParseReadings(text, line);
    if (!readings)
        return Failure{ExitCode::kUsage, fmt::format("{}: line {} holds no reading", name, line),
                       "write the number of a picture and ss.mmm, mm:ss.mmm or hh:mm:ss.mmm"};
    for (CalibrationPicture& picture : pictures)
        if (const auto found = readings->find(picture.number); found != readings->end())
            SetShown(picture, found->second);
    return std::nullopt;
}

void Ask(std::vector<CalibrationPicture>& pictures) {
    Output& output = Output::Standard();
    output.Line("Type what each picture shows: mm:ss.mmm, ss.mmm or hh:mm:ss.mmm; nothing to skip it, q when "
                "it is enough.");
    for (CalibrationPicture& picture : pictures) {
        for (;;) {
            output.Raw(fmt::format("{} shows: ", PictureFile(picture.number)));
            output.Finish();
            std::string line;
            if (!std::getline(std::cin, line) || line == "q")
                return;
            if (line.empty())
                break;
            if (const auto reading = ParseReading(line)) {
                SetShown(picture, *reading);
                break;
            }
            output.Line("Not a time with milliseconds, such as 07:31.250.");
        }
    }
}

/// Makes the directory for the pictures.
std::optional<Failure> MakeDirectory(const std::string& wanted, fs::path& directory) {
    const std::tm local = LocalTime(receiver::Now());
    directory = wanted.empty() ? fmt::format("camclock-calibrate-{:%Y%m%d-%H%M%S}", local) : wanted;
    std::error_code error;
    fs::create_directories(directory, error);
    return fs::is_directory(directory, error) ? std::nullopt : std::optional(CannotWrite(directory));
}

ExitCode Evaluate(const CalibrateOptions& options, Filming& filming, const fs::path& directory) {
    std::vector<CalibrationPicture> pictures = filming.Pictures();
    if (pictures.empty())
        return Report({ExitCode::kTimeOut, "time-out: no picture could be made of the stream",
                       "let it run longer with --duration"});
    if (const auto failure = WriteFile(directory / "calibrate.csv", CalibrationCsv(pictures)))
        return Report(*failure);
    Output::Standard().Line(fmt::format("{} pictures in {}", pictures.size(), directory.string()));
    if (!options.readings.empty()) {
        if (const auto failure = ReadFromFile(options.readings, pictures))
            return Report(*failure);
    } else {
        Ask(pictures);
    }
    const auto calibration = Calibrate(pictures, options.refresh_Hz, filming.Wait_ms());
    if (!calibration)
        return Report({ExitCode::kNoSync,
                       fmt::format("too few readings: {} within {:.0f} ms of their median are needed",
                                   kFewestReadings, kMisread_ms),
                       "read more pictures"});
    Output::Standard().Lines(CalibrationText(*calibration));
    return ExitCode::kSuccess;
}

ExitCode RunCalibrate(const CalibrateOptions& options) {
    StreamUrl url;
    fs::path directory;
    if (const auto failure = ReadUrl(options.url, options.access, url))
        return Report(*failure);
    if (const auto failure = SetUpLog(options.log))
        return Report(*failure);
    if (const auto failure = PrepareGstreamer())
        return Report(*failure);
    if (const auto failure = PictureGrabber::MissingElement())
        return Report(*failure);
    if (const auto failure = CheckTls(options.connection))
        return Report(*failure);
    receiver::Now();  // anchors the host's clock
    if (const auto failure = MakeDirectory(options.output, directory))
        return Report(*failure);
    Terminal::CatchInterrupts();
    const std::string network = options.pings > 0 ? NetworkText(url.host, options.pings) : "";
    if (!options.noClock && !Terminal::IsInteractive())
        Output::Standard().Line("no clock is shown: standard output is no terminal");

    Filming filming(options, url, directory);
    ExitCode result = filming.Run();
    const bool closed = filming.Closed();
    if (!network.empty() && !Terminal::Interrupted())  // where the clock does not wipe it out
        Output::Standard().Line(network);
    if (result == ExitCode::kSuccess && !Terminal::Interrupted()) {
        Terminal::ReleaseInterrupts();
        result = Evaluate(options, filming, directory);
    }
    if (!closed)
        Terminal::EndNow(result);
    return result;
}

}  // namespace

void AddCalibrate(CLI::App& program, ExitCode& exitCode) {
    auto options = std::make_shared<CalibrateOptions>();
    CLI::App* command =
        program.add_subcommand("calibrate", "Find a camera's latency by filming a clock on this screen");
    command->add_option("url", options->url, "rtsp://[user[:password]@]host[:port]/path")
        ->type_name("URL")
        ->required();
    command->add_option("--frames", options->frames, "Pictures to take, 10 to 25 [25]")
        ->type_name("COUNT")
        ->check(CLI::Range(10, 25).description(""));
    command->add_option("--duration", options->duration_s, "Spread over this time [60]")
        ->type_name("SECONDS")
        ->check(CLI::Range(1.0, 3600.0).description(""));
    command->add_flag("--no-clock", options->noClock, "Another clock is filmed that shows this host's time");
    command->add_option("--refresh", options->refresh_Hz, "So often the filmed clock shows a new time [60]")
        ->type_name("HZ")
        ->check(CLI::Range(1.0, 1e6).description(""));
    command
        ->add_option("--output", options->output,
                     "Pictures and calibrate.csv go there [camclock-calibrate-<time>]")
        ->type_name("DIR");
    command
        ->add_option("--readings", options->readings, "Read what the pictures show from here: lines NN TIME")
        ->type_name("FILE");
    command->add_option("--pings", options->pings, "Measure the network with so many pings; 0: not [50]")
        ->type_name("COUNT")
        ->check(CLI::Range(0, 10'000).description(""));
    AddConnectionOptions(*command, options->access, options->connection);
    AddLogOptions(*command, options->log);
    command->callback([options, &exitCode] { exitCode = RunCalibrate(*options); });
}

}  // namespace camclock::app
