#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/StreamSession.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"

#include <functional>
#include <memory>
#include <optional>

namespace camclock::app {

/// One connection to one camera, through GStreamer: it takes every RTP and RTCP packet at its arrival, before
/// any buffering, and hands it to the stream's session.
///
/// Packets arrive on GStreamer's threads; everything else is for one owning thread. The destructor closes the
/// connection and returns when no packet is under way any more.
class RtspReceiver {
public:
    /// Makes the session of a stream. It is called on a thread of GStreamer, once for each connection.
    using SessionMaker = std::function<std::shared_ptr<StreamSession>(const StreamFormat&)>;

    RtspReceiver(const StreamUrl& url, const ConnectionSettings& settings, SessionMaker makeSession);
    ~RtspReceiver();

    RtspReceiver(const RtspReceiver&) = delete;
    RtspReceiver& operator=(const RtspReceiver&) = delete;

    /// Starts to connect and returns; what goes wrong is told by `Poll`.
    void Start();

    /// Why the connection has ended, if it has. Does not wait.
    std::optional<Failure> Poll();

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> pipeline_;
};

/// Starts GStreamer; tells which of the plug-ins that a receiver needs are missing.
std::optional<Failure> PrepareGstreamer();

}  // namespace camclock::app
