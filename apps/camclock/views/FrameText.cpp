#include "apps/camclock/views/FrameText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>

namespace camclock::app {
namespace {

/// With as many digits as `Unit` gives a second.
template <class Unit>
std::string Iso(TimePoint time, int digits) {
    const auto whole = std::chrono::floor<Unit>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(whole);
    try {
        return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:0{}}Z",
                           fmt::gmtime(static_cast<std::time_t>(seconds.count())), (whole - seconds).count(),
                           digits);
    } catch (const fmt::format_error&) {
        return "invalid";
    }
}

}  // namespace

std::string IsoTime(TimePoint time) {
    return Iso<std::chrono::milliseconds>(time, 3);
}

std::string IsoTimeMicroseconds(TimePoint time) {
    return Iso<std::chrono::microseconds>(time, 6);
}

const char* FrameTypeText(MediaPacket::Frametype type) {
    switch (type) {
    case MediaPacket::kFrameI: return "I";
    case MediaPacket::kFrameP: return "P";
    case MediaPacket::kFrameB: return "B";
    case MediaPacket::kFrameSprite: return "S";
    case MediaPacket::kFrameUnknown: break;
    }
    return "?";
}

const char* TrustText(receiver::Trust trust) {
    switch (trust) {
    case receiver::Trust::kArrivalOnly: return "arrival";
    case receiver::Trust::kSettling: return "settling";
    case receiver::Trust::kGood: return "good";
    case receiver::Trust::kReplaced: break;
    }
    return "replaced";
}

}  // namespace camclock::app
