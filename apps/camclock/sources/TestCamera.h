#pragma once

#include <camclock/TimePoint.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace camclock::app {

/// A real RTSP camera on a free port of the loopback interface, with a clock of its own that is wrong in a
/// known way. It knows the truth: when each of its frames was made by the host's clock.
///
/// Frames are stamped when the picture is made, then encoded and sent, like those of a real camera. Its
/// sender reports tell the time of its own clock. The host's clock is not touched.
class TestCamera {
public:
    enum class Stream {
        kH264,
        kMpeg4Visual,
        kMotionJpeg,  ///< video that the program does not support
        kAudioOnly,
    };

    struct Settings {
        Stream stream = Stream::kH264;
        std::chrono::milliseconds offset{0};  ///< camera's clock less the host's, at the start
        double drift_ppm = 0.0;               ///< so much faster does the camera's clock run
        std::string user;                     ///< empty: nobody is asked for credentials
        std::string password;
        std::string tlsCertificate;  ///< PEM file with a certificate and its key: rtsps; empty: rtsp
    };

    /// What is true about one frame.
    struct Truth {
        TimePoint madeAt_host{};
        TimePoint madeAt_cam{};
    };

    /// Needs GStreamer started. Throws `std::runtime_error` when no server can be started.
    explicit TestCamera(const Settings& settings);

    /// Closes all connections and joins the server's thread.
    ~TestCamera();

    TestCamera(const TestCamera&) = delete;
    TestCamera& operator=(const TestCamera&) = delete;

    /// "rtsp://127.0.0.1:PORT/video" or "rtsps://...", without credentials.
    std::string Url() const;

    /// The frame with this RTP time stamp, if there has been one. Any thread.
    std::optional<Truth> TruthOf(std::uint32_t RTP_ts) const;

    /// Frames that left the encoder so far. Any thread.
    std::uint64_t FramesSent() const;

    /// From now on the camera sends no frame, but keeps its connections.
    void FallSilent();

    /// Closes every connection, as a camera that restarts.
    void CloseConnections();

private:
    struct Server;
    std::unique_ptr<Server> server_;
};

}  // namespace camclock::app
