#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/RtspReceiver.h"
#include "apps/camclock/sources/StreamSession.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"

#include <camclock/TimeFilter.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace camclock::app {

/// One camera from its first connection to its last: it owns the camera's `TimeFilter`, connects, supervises
/// the arrival of packets and, when asked to, connects again with a growing delay.
///
/// One owning thread; `rows` is called on GStreamer's threads.
class CameraWatch {
public:
    using Clock = std::chrono::steady_clock;

    enum class State {
        kConnecting,  ///< no frame yet
        kReceiving,
        kWaiting,  ///< for the next attempt
        kEnded,
    };

    CameraWatch(int number, StreamUrl url, TimingSettings timing, const ConnectionSettings& connection,
                StreamSession::Consumer rows);
    ~CameraWatch();

    void Start(Clock::time_point now);

    /// Does what is due; to be called some times a second. A text that is returned is news for the user.
    std::optional<std::string> Poll(Clock::time_point now);

    /// Closes the connection. Frames come no more once it returns.
    void Stop();

    void SetMeanLatency(std::chrono::milliseconds meanLatency);

    State GetState() const { return state_; }
    const StreamUrl& Url() const { return url_; }
    Transport GetTransport() const { return connection_.transport; }

    /// Why the camera is not received now, or was not in the end.
    const std::optional<Failure>& LastFailure() const { return failure_; }

    /// Was the clock difference to be measured?
    bool WithIcmp() const { return timing_.icmp; }

    /// The stream's format, once there has been a connection.
    std::optional<StreamFormat> Format();

    /// Size and pixel format of its pictures, once a header has told.
    std::optional<receiver::PictureFormat> Picture();

private:
    void _StartProbing();
    void _Connect(Clock::time_point now);
    std::shared_ptr<StreamSession> _Session();
    std::optional<Failure> _Check(Clock::time_point now);
    std::string _Lose(Failure failure, Clock::time_point now);

    const int number_;
    const StreamUrl url_;
    TimingSettings timing_;
    const ConnectionSettings connection_;
    const StreamSession::Consumer rows_;

    TimeFilter timeFilter_;
    std::atomic<bool> anyFrame_{false};  // since the connection was opened; set by receiving threads
    std::atomic<bool> shutDown_{false};  // the library asks to end the session
    std::mutex sessionMutex_;            // guards session_ and timing_, which GStreamer's threads use
    std::shared_ptr<StreamSession> session_;
    std::unique_ptr<RtspReceiver> receiver_;  // destroyed first: no packet arrives after it

    bool probing_ = false;  // the clock difference is being measured, as far as the user knows
    State state_ = State::kEnded;
    std::optional<Failure> failure_;
    Clock::time_point connectedAt_{};
    Clock::time_point nextAttempt_{};
    Clock::time_point nextCheck_{};
    std::chrono::milliseconds delay_{0};
};

}  // namespace camclock::app
