#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/PacketSource.h"
#include "apps/camclock/sources/StreamSession.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "apps/camclock/sources/Worker.h"

#include <camclock/TimeFilter.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app {

/// One URL of a camera from its first connection to its last: connects, supervises the arrival of frames and,
/// when asked to, connects again with a growing delay. It never waits for the camera.
///
/// One owning thread; `rows` is called on the source's threads.
class CameraWatch {
public:
    using Clock = std::chrono::steady_clock;
    using Rows = std::function<void(const FrameRow&)>;
    using SourceMaker = std::function<std::unique_ptr<PacketSource>(Worker&, PacketSource::Taker)>;

    enum class State {
        kConnecting,  ///< no frame yet
        kReceiving,
        kWaiting,  ///< for the next attempt
        kEnded,
    };

    /// Numbers of the streams in this run; sound has none when it is not wanted.
    struct Numbers {
        int video = 1;
        std::optional<int> audio;
    };

    CameraWatch(std::string name, Numbers numbers, StreamUrl url, TimingSettings timing,
                const ConnectionSettings& connection, SourceMaker makeSource, Rows rows);
    ~CameraWatch();

    void Start(Clock::time_point now);

    /// Does what is due; to be called some times a second. What is returned is news for the user.
    std::vector<std::string> Poll(Clock::time_point now);

    /// Ends: frames come no more once it returns.
    void Stop();

    /// After `Stop`: true when the connection is closed for good; waits for that until `deadline`.
    bool WaitUntilClosed(Clock::time_point deadline) { return worker_.WaitUntilIdle(deadline); }

    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    State GetState() const { return state_; }
    const std::string& Name() const { return name_; }
    const StreamUrl& Url() const { return url_; }

    /// How packets come, or came last: "udp", "tcp"; "" before the first.
    const std::string& Road() const { return road_; }

    /// Why the camera is not received now, or was not in the end.
    const std::optional<Failure>& LastFailure() const { return failure_; }

    /// Was the clock difference to be measured?
    bool WithIcmp() const { return timing_.icmp; }

    /// What is known of one of its streams, once there has been a connection.
    struct StreamFacts {
        receiver::Format format;
        std::optional<receiver::PictureFormat> picture;
        receiver::Statistics statistics;
    };
    std::optional<StreamFacts> Facts(int stream);

private:
    void _StartProbing();
    void _Connect(Clock::time_point now);
    std::shared_ptr<StreamSession> _Take(const receiver::Format& format);
    std::shared_ptr<StreamSession> _Session(int stream);
    std::optional<Failure> _Check(Clock::time_point now);
    std::optional<Failure> _CheckArrival(Clock::time_point now);
    std::string _Lose(Failure failure, Clock::time_point now);

    const std::string name_;
    const Numbers numbers_;
    const StreamUrl url_;
    TimingSettings timing_;
    const ConnectionSettings connection_;
    const SourceMaker makeSource_;
    const Rows rows_;

    TimeFilter timeFilter_;
    std::atomic<bool> anyFrame_{false};  // since the connection was opened; set by receiving threads
    std::atomic<bool> shutDown_{false};  // the library asks to end the session
    std::mutex sessionMutex_;            // guards sessions_ and timing_, which the source's threads use
    std::map<int, std::shared_ptr<StreamSession>> sessions_;  // by number
    Worker worker_;                                           // waits for the camera in our place
    std::unique_ptr<PacketSource> source_;                    // destroyed first: no packet arrives after it

    bool probing_ = false;  // the clock difference is being measured, as far as the user knows
    State state_ = State::kEnded;
    std::string road_;
    std::optional<Failure> failure_;
    Clock::time_point connectedAt_{};
    Clock::time_point receivingSince_{};
    Clock::time_point nextAttempt_{};
    Clock::time_point nextCheck_{};
    std::chrono::milliseconds delay_{0};
};

}  // namespace camclock::app
