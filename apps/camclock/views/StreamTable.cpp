#include "apps/camclock/views/StreamTable.h"

#include "apps/camclock/views/FrameText.h"
#include "apps/camclock/views/TextTable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace camclock::app {
namespace {

using Align = TextTable::Align;

std::string Number(std::optional<double> value) {
    return value ? fmt::format("{:.1f}", *value) : "-";
}

std::string Share(std::optional<double> share) {
    return share ? fmt::format("{:.1f}%", *share * 100.0) : "-";
}

/// "02:40:11.123" of "2026-11-21T02:40:11.123Z".
std::string TimeOfDay(TimePoint time) {
    const std::string text = IsoTime(time);
    const std::size_t start = text.find('T');
    return start == std::string::npos ? text : text.substr(start + 1, 12);
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

/// The camera's name; of a URL only what tells it from others, and sound is marked.
std::string ShownName(const StreamName& name) {
    constexpr std::string_view kScheme = "rtsp://";
    const bool isUrl = name.camera.compare(0, kScheme.size(), kScheme) == 0;
    const std::string shown = isUrl ? name.camera.substr(kScheme.size()) : name.camera;
    return name.media == "video" ? shown : shown + " " + name.media;
}

struct Cell {
    TextTable::Column column;
    std::function<std::string(const StreamLine&)> text;
    bool needsFrames = true;  // else there is nothing to tell
};

TextTable Fill(const std::vector<Cell>& cells, std::vector<StreamLine>::const_iterator begin,
               std::vector<StreamLine>::const_iterator end) {
    std::vector<TextTable::Column> columns;
    columns.reserve(cells.size());
    for (const Cell& cell : cells)
        columns.push_back(cell.column);
    TextTable table(std::move(columns));
    for (auto stream = begin; stream != end; ++stream) {
        std::vector<std::string> row;
        row.reserve(cells.size());
        for (const Cell& cell : cells)
            row.push_back(cell.needsFrames && stream->statistics->Frames() == 0 ? "-" : cell.text(*stream));
        table.AddRow(std::move(row));
    }
    return table;
}

/// What both tables begin with. `elastic` first: names are cut before anything is left out.
std::vector<Cell> NameCells() {
    return {
        {{"#", Align::kLeft}, [](const StreamLine& s) { return std::to_string(s.name.number); }, false},
        {{"camera", Align::kLeft, 0, true}, [](const StreamLine& s) { return ShownName(s.name); }, false}};
}

/// The order in which columns are left out where there is no room: those of the greatest rank first.
std::vector<Cell> LiveCells(TimePoint now) {
    constexpr std::size_t kRecent = StreamStatistics::kRecent;
    std::vector<Cell> cells = NameCells();
    const auto add = [&cells](const char* title, int rank,
                              std::function<std::string(const StreamLine&)> text) {
        cells.push_back({{title, Align::kRight, rank}, std::move(text)});
    };
    cells.push_back({{"state", Align::kLeft}, [](const StreamLine& s) { return s.state; }, false});
    cells.push_back(
        {{"via", Align::kLeft, 8}, [](const StreamLine& s) { return OrDash(s.transport); }, false});
    cells.push_back(
        {{"codec", Align::kLeft, 13}, [](const StreamLine& s) { return OrDash(s.codec); }, false});
    cells.push_back({{"size", Align::kLeft, 14}, [](const StreamLine& s) { return OrDash(s.size); }, false});
    add("fps", 2, [](const StreamLine& s) { return Number(s.statistics->FrameRate(kRecent)); });
    add("kbit/s", 7,
        [](const StreamLine& s) { return fmt::format("{:.0f}", s.statistics->BitRate_kbit(kRecent)); });
    add("captured UTC", 0,
        [](const StreamLine& s) { return TimeOfDay(s.statistics->Last().frame.captured_host); });
    add("D ms", 3, [](const StreamLine& s) { return std::to_string(s.counts.D.count()); });
    add("±us", 10, [](const StreamLine& s) {
        const auto& uncertainty = s.statistics->Last().frame.uncertainty;
        return uncertainty ? std::to_string(uncertainty->count()) : "-";
    });
    add("good", 1, [](const StreamLine& s) { return Share(s.statistics->GoodShare()); });
    add("lat50", 5, [](const StreamLine& s) { return Number(s.statistics->Latency_ms(0.5, kRecent)); });
    add("lat95", 6, [](const StreamLine& s) { return Number(s.statistics->Latency_ms(0.95, kRecent)); });
    add("jitter", 11, [](const StreamLine& s) { return Number(s.statistics->Jitter_ms()); });
    add("lost", 4, [](const StreamLine& s) { return std::to_string(s.counts.lost); });
    add("SR s", 9, [now](const StreamLine& s) {
        if (!s.counts.lastReport_host)
            return std::string("none");
        return Number(std::chrono::duration<double>(now - *s.counts.lastReport_host).count());
    });
    add("epoch", 12, [](const StreamLine& s) { return std::to_string(s.statistics->Last().frame.epoch); });
    add("stable PTS", 15, [](const StreamLine& s) { return std::to_string(s.statistics->Last().frame.pts); });
    return cells;
}

std::vector<Cell> SummaryCells() {
    constexpr std::size_t kAll = StreamStatistics::kKept;
    std::vector<Cell> cells = NameCells();
    const auto add = [&cells](const char* title, int rank,
                              std::function<std::string(const StreamLine&)> text) {
        cells.push_back({{title, Align::kRight, rank}, std::move(text)});
    };
    cells.push_back(
        {{"via", Align::kLeft, 5}, [](const StreamLine& s) { return OrDash(s.transport); }, false});
    cells.push_back({{"codec", Align::kLeft, 7}, [](const StreamLine& s) { return OrDash(s.codec); }, false});
    cells.push_back({{"size", Align::kLeft, 6}, [](const StreamLine& s) { return OrDash(s.size); }, false});
    cells.push_back(
        {{"frames"}, [](const StreamLine& s) { return std::to_string(s.statistics->Frames()); }, false});
    add("seconds", 8, [](const StreamLine& s) { return Number(s.statistics->Seconds()); });
    add("fps", 2, [](const StreamLine& s) { return Number(s.statistics->FrameRate(kAll)); });
    add("kbit/s", 9,
        [](const StreamLine& s) { return fmt::format("{:.0f}", s.statistics->BitRate_kbit(kAll)); });
    add("lost", 1, [](const StreamLine& s) { return std::to_string(s.counts.lost); });
    add("reports", 11, [](const StreamLine& s) { return std::to_string(s.counts.reports); });
    add("epochs", 13, [](const StreamLine& s) { return std::to_string(s.counts.epoch); });
    add("good", 0, [](const StreamLine& s) { return Share(s.statistics->GoodShare()); });
    add("lat50", 3, [](const StreamLine& s) { return Number(s.statistics->Latency_ms(0.5, kAll)); });
    add("lat95", 4, [](const StreamLine& s) { return Number(s.statistics->Latency_ms(0.95, kAll)); });
    add("lat max", 10, [](const StreamLine& s) { return Number(s.statistics->Latency_ms(1.0, kAll)); });
    add("jitter", 12, [](const StreamLine& s) { return Number(s.statistics->Jitter_ms()); });
    add("D ms", 2, [](const StreamLine& s) { return std::to_string(s.counts.D.count()); });
    return cells;
}

nlohmann::ordered_json JsonNumber(std::optional<double> value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json JsonText(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

}  // namespace

std::vector<std::string> LiveTable(const std::vector<StreamLine>& streams, TimePoint now,
                                   Terminal::Size screen, std::size_t page) {
    // A line for the titles, one for the page's number, and one for the cursor.
    const std::size_t room = std::max<std::size_t>(screen.rows, 4) - 3;
    const bool fits = streams.size() <= room + 1;
    const std::size_t a_page = fits ? std::max<std::size_t>(streams.size(), 1) : room;
    const std::size_t pages = std::max<std::size_t>((streams.size() + a_page - 1) / a_page, 1);
    const std::size_t first = page % pages * a_page;
    const std::size_t end = std::min(first + a_page, streams.size());
    const auto at = [&streams](std::size_t i) { return streams.begin() + static_cast<std::ptrdiff_t>(i); };
    std::vector<std::string> lines = Fill(LiveCells(now), at(first), at(end)).Lines(screen.columns - 1);
    if (!fits)
        lines.push_back(CutToWidth(fmt::format("{} to {} of {} streams (page {} of {})", first + 1, end,
                                               streams.size(), page % pages + 1, pages),
                                   screen.columns - 1));
    return lines;
}

std::vector<std::string> SummaryTable(const std::vector<StreamLine>& streams, std::size_t width) {
    std::vector<std::string> lines = Fill(SummaryCells(), streams.begin(), streams.end()).Lines(width);
    for (const StreamLine& stream : streams)
        if (!stream.failure.empty())
            lines.push_back(CutToWidth(
                fmt::format("{}  {}: {}", stream.name.number, stream.name.camera, stream.failure), width));
    return lines;
}

std::string SummaryJson(const std::vector<StreamLine>& streams) {
    constexpr std::size_t kAll = StreamStatistics::kKept;
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const StreamLine& stream : streams) {
        const StreamStatistics& statistics = *stream.statistics;
        const receiver::Statistics& counts = stream.counts;
        array.push_back({{"stream", stream.name.number},
                         {"camera", stream.name.camera},
                         {"media", stream.name.media},
                         {"url", stream.url},
                         {"transport", JsonText(stream.transport)},
                         {"codec", JsonText(stream.codec)},
                         {"size", JsonText(stream.size)},
                         {"failure", JsonText(stream.failure)},
                         {"frames", statistics.Frames()},
                         {"seconds", statistics.Seconds()},
                         {"fps", statistics.FrameRate(kAll)},
                         {"kbit_s", statistics.BitRate_kbit(kAll)},
                         {"lost", counts.lost},
                         {"late", counts.late},
                         {"malformed", counts.malformed},
                         {"foreign", counts.foreign},
                         {"implausible", counts.implausible},
                         {"reports", counts.reports},
                         {"epochs", counts.epoch},
                         {"good_share", JsonNumber(statistics.GoodShare())},
                         {"latency_ms",
                          {{"p50", JsonNumber(statistics.Latency_ms(0.5, kAll))},
                           {"p95", JsonNumber(statistics.Latency_ms(0.95, kAll))},
                           {"max", JsonNumber(statistics.Latency_ms(1.0, kAll))}}},
                         {"jitter_ms", statistics.Jitter_ms()},
                         {"D_ms", counts.D.count()},
                         {"D_uncertainty_us", counts.D_uncert.count()},
                         {"skew_ppm", counts.skew_ppm}});
    }
    return array.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::vector<std::string> IcmpSummary(const std::vector<StreamLine>& streams) {
    constexpr double kDisagreement_ms = 1'000.0;
    std::vector<std::string> lines;
    for (const StreamLine& stream : streams) {
        if (!stream.icmp)
            continue;
        const std::optional<double> latency_ms = stream.statistics->ClockLatency_ms();
        const double D_uncert_ms = std::chrono::duration<double, std::milli>(stream.counts.D_uncert).count();
        std::string line = fmt::format("{}  ICMP: D {} ms ±{:.1f}", stream.name.number,
                                       stream.counts.D.count(), D_uncert_ms);
        if (!latency_ms) {
            lines.push_back(line + ", no estimate to compare it with");
            continue;
        }
        const double D_hat_ms = *latency_ms - static_cast<double>(stream.meanLatency.count());
        const double difference_ms = static_cast<double>(stream.counts.D.count()) - D_hat_ms;
        lines.push_back(line + fmt::format(", D - D_hat {:.0f} ms", difference_ms));
        if (std::fabs(difference_ms) > kDisagreement_ms)
            lines.push_back(fmt::format(
                "{}  WARNING: the camera's sender reports come from another clock than its ICMP time stamps; "
                "do not use --icmp with it",
                stream.name.number));
    }
    return lines;
}

}  // namespace camclock::app
