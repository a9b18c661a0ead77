#pragma once

#include <camclock/MediaPacket.h>
#include <camclock/TimePoint.h>
#include <camclock/receiver/Frame.h>

#include <string>

namespace camclock::app {

/// "2026-11-21T02:40:11.123Z": UTC, ISO 8601, with milliseconds; the rest is dropped.
std::string IsoTime(TimePoint time);

/// The same with microseconds.
std::string IsoTimeMicroseconds(TimePoint time);

/// "I", "P", "B", "S" (sprite), "?" (unknown).
const char* FrameTypeText(MediaPacket::Frametype type);

/// "good", "settling", "arrival", "replaced".
const char* TrustText(receiver::Trust trust);

}  // namespace camclock::app
