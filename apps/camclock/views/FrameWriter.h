#pragma once

#include "apps/camclock/sources/FrameRow.h"

#include <string>

namespace camclock::app {

/// "2026-11-21T02:40:11.123Z": UTC (ISO 8601), ticks below a millisecond dropped toward the past; "invalid"
/// for times past the calendar's reach, which a camera with a broken clock may report.
std::string IsoTime(TimePoint time);

/// "I", "P", "B", "S" (sprite) or "?".
const char* FrameTypeText(MediaPacket::Frametype type);

/// "good" or "bad".
const char* TrustText(MediaPacket::TimeEstimateTrustIndex trust);

// One frame on one line, without the line's end; the columns are described in docs/program.md.

std::string CsvHeader();
std::string CsvLine(const FrameRow& row);
std::string JsonLine(const FrameRow& row);

}  // namespace camclock::app
