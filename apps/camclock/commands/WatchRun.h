#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/commands/FrameQueue.h"
#include "apps/camclock/sources/CameraWatch.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "apps/camclock/views/ConsoleView.h"
#include "apps/camclock/views/StreamStatistics.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace camclock::app {

/// What to watch, for how long, and how to tell.
struct WatchPlan {
    struct Target {
        StreamUrl url;
        Transport transport = Transport::kAuto;
    };
    std::vector<Target> targets;
    TimingSettings timing;
    ConnectionSettings connection;
    std::optional<std::chrono::milliseconds> duration;
    OutputFormat format = OutputFormat::kTable;
    bool quiet = false;  ///< neither frames, table nor summary: somebody else tells
    bool logsToTerminal =
        false;  ///< the library's messages share the terminal, so that no table stays in place
};

/// Watches cameras until the time is over, all of them have ended, or Ctrl-C. This is `camclock watch`, and
/// what `camclock demo` runs against its own camera.
class WatchRun {
public:
    /// Is shown every frame, on the thread that calls `Run`, before it is printed.
    using Observer = std::function<void(const FrameRow&, CameraWatch&)>;

    explicit WatchRun(WatchPlan plan, Observer observer = nullptr);
    ~WatchRun();

    /// Returns when all is over: success, or the first failure that ended a camera.
    ExitCode Run();

    const StreamStatistics& Statistics(std::size_t camera) const { return statistics_[camera]; }

private:
    ExitCode _PollCameras(CameraWatch::Clock::time_point now);
    TimingSettings _TimingOf(int camera) const;
    void _TakeRows(std::chrono::milliseconds timeOut);
    void _Print(const FrameRow& row) const;
    void _ShowTable();
    void _Summarise();
    std::vector<CameraLine> _Lines();

    // Rows wait here while the printer is busy: more than a minute of four cameras.
    static constexpr int kQueueCapacity = 8'192;

    WatchPlan plan_;
    Observer observer_;
    FrameQueue queue_{kQueueCapacity};
    std::vector<StreamStatistics> statistics_;
    ConsoleView view_;
    std::vector<std::unique_ptr<CameraWatch>> cameras_;  // destroyed first: they fill the queue
};

}  // namespace camclock::app
