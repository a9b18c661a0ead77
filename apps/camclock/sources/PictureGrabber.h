#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/Gst.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app {

/// Takes some pictures out of a stream, evenly spread over a time that begins with the first, as PNG, each
/// with the RTP time stamp of its frame. The stamp rides through depayloader, parser and decoder as a
/// buffer's reference time stamp.
///
/// Any thread.
class PictureGrabber {
public:
    struct Picture {
        std::uint32_t rtp_ts = 0;
        std::string png;
    };

    PictureGrabber(int pictures, std::chrono::milliseconds spread);

    PictureGrabber(const PictureGrabber&) = delete;
    PictureGrabber& operator=(const PictureGrabber&) = delete;

    /// Which of the elements that it needs GStreamer lacks; with GStreamer started.
    static std::optional<Failure> MissingElement();

    /// Ends a stream of RTP packets, in place of a sink; floating. The grabber must outlive it.
    GstElement* MakeBranch();

    /// The pictures that were made since the last call.
    std::vector<Picture> Take();

private:
    using Clock = std::chrono::steady_clock;

    bool _Wants(Clock::time_point now);

    // ---- GStreamer's callbacks, on its threads ----
    static void _OnDecoded(GstElement* decoder, GstPad* pad, gpointer data);
    static GstPadProbeReturn _OnPacket(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn _OnPicture(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static void _OnPng(GstElement* sink, GstBuffer* buffer, GstPad* pad, gpointer data);

    const int pictures_;
    const std::chrono::milliseconds spread_;
    const CapsOwner stampKind_;

    std::mutex mutex_;  // guards all below
    std::optional<Clock::time_point> first_;
    int chosen_ = 0;
    std::deque<std::uint32_t> inEncoder_;  // stamps of pictures that become PNG
    std::vector<Picture> made_;
};

}  // namespace camclock::app
