#pragma once

#include <chrono>
#include <string>

namespace camclock::app {

enum class Transport {
    kAuto,  ///< UDP, and TCP when nothing comes
    kUdp,
    kTcp,  ///< interleaved with the RTSP connection (RFC 2326, 10.12)
};

/// How to reach a camera, and how long to keep trying.
struct ConnectionSettings {
    Transport transport = Transport::kAuto;
    std::chrono::milliseconds connectTimeOut{10'000};  ///< from the attempt to the first frame
    bool reconnect = false;
    std::chrono::milliseconds firstDelay{1'000};  ///< before the first new attempt; doubles with each
    std::chrono::milliseconds longestDelay{30'000};
    std::string tlsCaFile;     ///< certificates to trust, PEM; empty: the system's
    bool tlsInsecure = false;  ///< accept any certificate
    bool audio = false;        ///< watch the sound beside the picture
};

}  // namespace camclock::app
