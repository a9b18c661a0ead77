#include "apps/camclock/views/FrameColumns.h"

#include "apps/camclock/views/FrameText.h"

#include <nlohmann/json.hpp>

#include <type_traits>

namespace camclock::app {
namespace {

using Value = FrameColumn::Value;

Value Number(std::uint64_t number) {
    return static_cast<std::int64_t>(number);
}

/// An estimator that does not run gives no time.
Value Estimate(TimePoint time) {
    return time == TimePoint{} ? Value() : Value(IsoTimeMicroseconds(time));
}

std::string CsvText(const Value& value) {
    return std::visit(
        [](const auto& held) -> std::string {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::monostate>)
                return "";
            else if constexpr (std::is_same_v<Held, bool>)
                return held ? "1" : "0";
            else if constexpr (std::is_same_v<Held, std::string>)
                return CsvField(held);
            else
                return std::to_string(held);
        },
        value);
}

nlohmann::ordered_json JsonOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> nlohmann::ordered_json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>)
                return nullptr;
            else
                return held;
        },
        value);
}

}  // namespace

const std::vector<FrameColumn>& FrameColumns() {
    using Row = const FrameRow&;
    using Name = const StreamName&;
    static const std::vector<FrameColumn> columns{
        {"stream", "",
         "number of the stream: of its URL on the command line, from 1; sounds follow behind all pictures",
         [](Row, Name of) -> Value { return std::int64_t{of.number}; }},
        {"TOC_cam", "UTC, ISO 8601 with ms",
         "time of capture, camera's clock; before the first sender report the time of reception",
         [](Row row, Name) -> Value { return IsoTime(row.frame.captured_cam); }},
        {"TOC_host", "UTC, ISO 8601 with ms", "time of capture, host's clock",
         [](Row row, Name) -> Value { return IsoTime(row.frame.captured_host); }},
        {"TOR_host", "UTC, ISO 8601 with ms", "time of reception of the frame's first packet, host's clock",
         [](Row row, Name) -> Value { return IsoTime(row.frame.arrived_host); }},
        {"trust", "", "`arrival`, `settling`, `good` or `replaced`, see below",
         [](Row row, Name) -> Value { return TrustText(row.frame.trust); }},
        {"stable_pts", "ticks of the RTP clock", "presentation time stamp, from the camera's first frame on",
         [](Row row, Name) -> Value { return row.frame.pts; }},
        {"frame_type", "", "`I`, `P`, `B`, `S` (sprite), `?` (unknown)",
         [](Row row, Name) -> Value { return FrameTypeText(row.frame.type); }},
        {"bytes", "bytes", "payload of all packets of the frame",
         [](Row row, Name) -> Value { return Number(row.frame.bytes); }},
        {"rtp_ts", "ticks of the RTP clock", "RTP time stamp",
         [](Row row, Name) -> Value { return Number(row.frame.rtp_ts); }},
        {"seq", "", "RTP sequence number of the frame's first packet",
         [](Row row, Name) -> Value { return Number(row.frame.seq); }},
        {"rtcp_sync", "", "whether there has been a sender report (`1` or `0`, JSON `true` or `false`)",
         [](Row row, Name) -> Value { return row.Synced(); }},
        {"D_ms", "ms", "clock difference, host less camera, as used for this frame",
         [](Row row, Name) -> Value { return std::int64_t{row.frame.D.count()}; }},
        {"epoch", "", "number of the stretch in which one mapping of times holds, from 1",
         [](Row row, Name) -> Value { return Number(row.frame.epoch); }},
        {"uncertainty", "us", "of `TOC_host`, either way; empty where it is not known",
         [](Row row, Name) -> Value {
             return row.frame.uncertainty ? Value(std::int64_t{row.frame.uncertainty->count()}) : Value();
         }},
        {"median", "UTC, ISO 8601 with us", "time of capture by the median of the latencies, host's clock",
         [](Row row, Name) -> Value { return Estimate(row.frame.median_host); }},
        {"precise", "UTC, ISO 8601 with us", "time of capture by the floor line, host's clock",
         [](Row row, Name) -> Value { return Estimate(row.frame.precise_host); }},
        {"camera", "", "name of the camera, or its URL without secrets",
         [](Row, Name of) -> Value { return of.camera; }},
        {"media", "", "`video` or `audio`", [](Row, Name of) -> Value { return of.media; }},
    };
    return columns;
}

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string field = "\"";
    for (const char c : text) {
        field += c;
        if (c == '"')
            field += c;
    }
    return field + '"';
}

std::string CsvHeader() {
    std::string line;
    for (const FrameColumn& column : FrameColumns())
        line += (line.empty() ? "" : ",") + std::string(column.name);
    return line;
}

std::string CsvLine(const FrameRow& row, const StreamName& of) {
    std::string line;
    for (const FrameColumn& column : FrameColumns())
        line += (&column == &FrameColumns().front() ? "" : ",") + CsvText(column.value(row, of));
    return line;
}

std::string JsonLine(const FrameRow& row, const StreamName& of) {
    nlohmann::ordered_json line;
    for (const FrameColumn& column : FrameColumns())
        line[column.name] = JsonOf(column.value(row, of));
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace camclock::app
