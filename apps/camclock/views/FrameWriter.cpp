#include "apps/camclock/views/FrameWriter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <ctime>

namespace camclock::app {

std::string IsoTime(TimePoint time) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
    try {
        return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                           fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                           (milliseconds - seconds).count());
    } catch (const fmt::format_error&) {
        return "invalid";
    }
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

const char* TrustText(MediaPacket::TimeEstimateTrustIndex trust) {
    return trust == MediaPacket::kTrustGood ? "good" : "bad";
}

std::string CsvHeader() {
    return "stream,TOC_cam,TOC_host,TOR_host,trust,stable_pts,frame_type,bytes,rtp_ts,seq,rtcp_sync,D_ms";
}

std::string CsvLine(const FrameRow& row) {
    return fmt::format("{},{},{},{},{},{},{},{},{},{},{},{}", row.stream, IsoTime(row.TOC_cam),
                       IsoTime(row.TOC_host), IsoTime(row.frame.TOR_host), TrustText(row.trust),
                       row.stablePts, FrameTypeText(row.frame.type), row.frame.bytes, row.frame.RTP_ts,
                       row.frame.seqnum, row.rtcpSync ? 1 : 0, row.D.count());
}

std::string JsonLine(const FrameRow& row) {
    const nlohmann::ordered_json line{
        {"stream", row.stream},
        {"TOC_cam", IsoTime(row.TOC_cam)},
        {"TOC_host", IsoTime(row.TOC_host)},
        {"TOR_host", IsoTime(row.frame.TOR_host)},
        {"trust", TrustText(row.trust)},
        {"stable_pts", row.stablePts},
        {"frame_type", FrameTypeText(row.frame.type)},
        {"bytes", row.frame.bytes},
        {"rtp_ts", row.frame.RTP_ts},
        {"seq", row.frame.seqnum},
        {"rtcp_sync", row.rtcpSync},
        {"D_ms", row.D.count()},
    };
    return line.dump();
}

}  // namespace camclock::app
