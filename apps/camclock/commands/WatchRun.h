#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/commands/FrameQueue.h"
#include "apps/camclock/commands/WatchOptions.h"
#include "apps/camclock/sources/CameraWatch.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "apps/camclock/views/RowSink.h"
#include "apps/camclock/views/StreamStatistics.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app {

enum class SummaryFormat { kText, kJson, kNone };

/// What to watch, for how long, and how to tell.
struct WatchPlan {
    struct Target {
        std::string camera;  ///< what it is called
        bool named = false;  ///< by the user: URLs of one name are one camera
        StreamUrl url;
        Transport transport = Transport::kAuto;
    };
    std::vector<Target> targets;
    TimingSettings timing;
    ConnectionSettings connection;
    std::optional<std::chrono::milliseconds> duration;
    OutputFormat format = OutputFormat::kTable;
    SummaryFormat summary = SummaryFormat::kText;
    bool quiet = false;  ///< neither frames, table nor summary: somebody else tells
    bool logsToTerminal =
        false;  ///< the library's messages share the terminal, so that no table stays in place
};

/// Watches cameras until the time is over, all of them have ended, Ctrl-C, or until nobody reads what is
/// written. This is `camclock watch`, and what `camclock demo` runs against its own camera.
class WatchRun {
public:
    /// Is shown every frame, on the thread that calls `Run`, before it is printed.
    using Observer = std::function<void(const FrameRow&, CameraWatch&)>;

    explicit WatchRun(WatchPlan plan, Observer observer = nullptr);
    ~WatchRun();

    /// Returns when all is over: success, or the first failure that ended a camera. Half a second after that
    /// it has returned, whatever the cameras do.
    ExitCode Run();

    /// After `Run`: a connection could not be closed in time. The process is to end without the destructor,
    /// which would wait for it.
    bool Stuck() const { return stuck_; }

private:
    struct Stream {
        CameraWatch* camera;  // of cameras_
        StreamName name;
        StreamStatistics statistics;
        std::optional<CameraWatch::Clock::time_point> lastFrame;
    };

    void _Poll(CameraWatch::Clock::time_point now);
    void _CheckOutputs(CameraWatch::Clock::time_point now);
    void _CheckForFrames();
    void _Fail(const Failure& failure);
    void _Close();
    std::shared_ptr<receiver::Camera> _CameraOf(std::size_t index);
    void _TakeEvents();
    void _Tell(const std::string& news);
    void _Stop();
    void _TakeRows(std::chrono::milliseconds timeOut);
    void _Summarise();
    std::vector<StreamLine> _Lines() const;
    static std::string _StateText(const Stream& stream);

    // Rows wait here while the printer is busy: more than a minute of four cameras.
    static constexpr int kQueueCapacity = 8'192;

    WatchPlan plan_;
    Observer observer_;
    FrameQueue queue_{kQueueCapacity};
    std::unique_ptr<RowSink> sink_;  // none when quiet
    std::vector<Stream> streams_;    // by number, from 1
    std::mutex eventsMutex_;         // guards events_, which receiving threads fill
    std::vector<receiver::Event> events_;
    std::map<std::string, std::shared_ptr<receiver::Camera>> named_;
    std::vector<std::unique_ptr<CameraWatch>> cameras_;  // destroyed first: they fill the queue
    ExitCode result_ = ExitCode::kSuccess;
    bool ended_ = false;  // there is no sense in going on
    bool stuck_ = false;
    CameraWatch::Clock::time_point nextDiskCheck_{};
};

}  // namespace camclock::app
