#pragma once

#include <camclock/receiver/Frame.h>

#include <cstdint>

namespace camclock::app {

/// One frame on its way from the thread that received it to the one that prints. A value.
struct FrameRow {
    int stream = 0;  ///< number of the stream in this run, from 1
    std::uint32_t clockRate_Hz = 90'000;
    receiver::Frame frame;

    /// Has there been a sender report, so that the camera's own time is known?
    bool Synced() const { return frame.captured_cam != frame.arrived_host; }
};

}  // namespace camclock::app
