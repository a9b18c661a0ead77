#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/sources/PacketSource.h"
#include "apps/camclock/sources/StreamFeed.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "apps/camclock/sources/Worker.h"

#include <camclock/Receiver.h>

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

/// One URL of a camera from its first connection to its last: connects, ends the connection when the stream
/// falls silent and, when asked to, connects again with a growing delay. It never waits for the camera.
/// Several URLs of one device share its `receiver::Camera`.
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

    /// `requireReports`: so long may the picture be without a sender report.
    CameraWatch(std::string name, std::shared_ptr<receiver::Camera> camera, Numbers numbers, StreamUrl url,
                ConnectionSettings connection, std::optional<std::chrono::milliseconds> requireReports,
                SourceMaker makeSource, Rows rows);
    ~CameraWatch();

    void Start(Clock::time_point now);

    /// Does what is due; to be called some times a second. What is returned is news for the user.
    std::vector<std::string> Poll(Clock::time_point now);

    /// The id of one of its streams in events and in the library's messages.
    std::string StreamId(const std::string& media) const;

    /// The picture, of this id, has fallen silent.
    void OnSilence(const std::string& streamId);

    /// Ends: frames come no more once it returns.
    void Stop();

    /// After `Stop`: true when the connection is closed for good; waits for that until `deadline`.
    bool WaitUntilClosed(Clock::time_point deadline) { return worker_.WaitUntilIdle(deadline); }

    receiver::Camera& Camera() { return *camera_; }

    State GetState() const { return state_; }
    const std::string& Name() const { return name_; }
    const StreamUrl& Url() const { return url_; }

    /// How packets come, or came last: "udp", "tcp"; "" before the first.
    const std::string& Road() const { return road_; }

    /// Why the camera is not received now, or was not in the end.
    const std::optional<Failure>& LastFailure() const { return failure_; }

    /// What is known of one of its streams, once there has been a connection.
    struct StreamFacts {
        receiver::Format format;
        std::optional<receiver::PictureFormat> picture;
        receiver::Statistics statistics;
    };
    std::optional<StreamFacts> Facts(int stream);

private:
    struct Known {
        receiver::Format format;
        std::shared_ptr<receiver::Stream> stream;  // lives over connections
        std::shared_ptr<StreamFeed> feed;          // of the present connection, or the last
    };

    void _Connect(Clock::time_point now);
    std::shared_ptr<StreamFeed> _Take(const receiver::Format& format);
    std::optional<Failure> _Check(Clock::time_point now);
    std::optional<Failure> _CheckReports(Clock::time_point now);
    std::string _Lose(Failure failure, Clock::time_point now);

    const std::string name_;
    const std::shared_ptr<receiver::Camera> camera_;
    const Numbers numbers_;
    const StreamUrl url_;
    const ConnectionSettings connection_;
    const std::optional<std::chrono::milliseconds> requireReports_;
    const SourceMaker makeSource_;
    const Rows rows_;

    std::atomic<bool> anyFrame_{false};     // since the connection was opened; set by receiving threads
    std::mutex knownMutex_;                 // guards known_, which the source's threads use
    std::map<int, Known> known_;            // by number
    Worker worker_;                         // waits for the camera in our place
    std::unique_ptr<PacketSource> source_;  // destroyed first: no packet arrives after it

    bool silent_ = false;
    State state_ = State::kEnded;
    std::string road_;
    std::optional<Failure> failure_;
    Clock::time_point connectedAt_{};
    Clock::time_point receivingSince_{};
    Clock::time_point nextCheck_{};
    Clock::time_point nextAttempt_{};
    std::chrono::milliseconds delay_{0};
};

}  // namespace camclock::app
