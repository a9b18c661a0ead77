#pragma once

#include "apps/camclock/sources/PacketSource.h"
#include "apps/camclock/sources/PictureGrabber.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"
#include "apps/camclock/sources/Worker.h"

#include <memory>
#include <optional>

namespace camclock::app {

/// One connection to one camera, through GStreamer: it takes every RTP and RTCP packet at its arrival, before
/// any buffering, and hands it to the stream that it belongs to.
///
/// Starting and ending, which wait for the camera, are `worker`'s jobs, in the order of the connections that
/// share it; it must outlive them. With a `grabber`, which must outlive them too, the pictures are decoded
/// for it.
class RtspReceiver : public PacketSource {
public:
    RtspReceiver(const StreamUrl& url, const ConnectionSettings& settings, Worker& worker, Taker taker,
                 PictureGrabber* grabber = nullptr);
    ~RtspReceiver() override;

    RtspReceiver(const RtspReceiver&) = delete;
    RtspReceiver& operator=(const RtspReceiver&) = delete;

    void Start() override;
    std::optional<Failure> Poll() override;
    const char* Road() const override;
    void Close() override;

private:
    struct Pipeline;
    std::shared_ptr<Pipeline> pipeline_;  // shared with the worker's jobs
    Worker& worker_;
};

/// Starts GStreamer; tells which of the plug-ins that a receiver needs are missing.
std::optional<Failure> PrepareGstreamer();

/// Reads the certificates of `--tls-ca`; to be called with GStreamer started.
std::optional<Failure> CheckTls(const ConnectionSettings& settings);

}  // namespace camclock::app
