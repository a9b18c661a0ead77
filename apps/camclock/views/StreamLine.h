#pragma once

#include "apps/camclock/views/StreamStatistics.h"

#include <camclock/receiver/Frame.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace camclock::app {

/// What a stream is called wherever it is shown.
struct StreamName {
    int number = 1;
    std::string camera;           ///< as the user calls it, else the URL without secrets
    std::string media = "video";  ///< or "audio"
};

/// One stream as tables and summaries show it; a value, so that they can be made up in tests.
struct StreamLine {
    StreamName name;
    std::string url;        ///< without secrets
    std::string transport;  ///< that is used: "udp", "tcp"; empty: not known yet
    std::string state;      ///< "connecting", "receiving", "stalled 12s", "waiting", "ended"
    std::string codec;      ///< empty: not known yet
    std::string size;       ///< "640x480 4:2:0"; empty: not known
    std::string failure;    ///< why it is not received; empty: it is
    const StreamStatistics* statistics = nullptr;
    receiver::Statistics counts;
    bool icmp = false;  ///< the clock difference was to be measured
    std::chrono::milliseconds meanLatency{30};
};

using LineMaker = std::function<std::vector<StreamLine>()>;

}  // namespace camclock::app
