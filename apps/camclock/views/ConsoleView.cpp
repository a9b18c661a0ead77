#include "apps/camclock/views/ConsoleView.h"

#include "apps/camclock/views/FrameWriter.h"
#include "apps/camclock/views/Terminal.h"
#include "apps/camclock/views/TextTable.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <optional>

namespace camclock::app {
namespace {

using Align = TextTable::Align;

std::string Number(std::optional<double> value, const char* unit = "") {
    return value ? fmt::format("{:.1f}{}", *value, unit) : "-";
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

std::string Legend(const CameraLine& camera) {
    std::string line = fmt::format("{}  {}", camera.number, camera.label);
    for (const std::string& word : {camera.transport, camera.codec, camera.state})
        if (!word.empty())
            line += "  " + word;
    return line;
}

std::vector<std::string> Row(const CameraLine& camera, TimePoint now) {
    const StreamStatistics& statistics = *camera.statistics;
    const FrameRow& last = statistics.Last();
    const std::size_t recent = StreamStatistics::kRecent;
    if (statistics.Frames() == 0)
        return {std::to_string(camera.number),
                camera.size.empty() ? "-" : camera.size,
                "-",
                "-",
                "-",
                "-",
                "-",
                "-",
                "-",
                "-",
                "-"};
    const double age_s = std::chrono::duration<double>(now - last.lastReport_host).count();
    return {std::to_string(camera.number),
            camera.size.empty() ? "-" : camera.size,
            Number(statistics.FrameRate(recent)),
            TimeOfDay(last.TOC_host),
            std::to_string(last.D.count()),
            std::to_string(last.D_uncert.count()),
            Share(statistics.GoodShare()),
            Number(statistics.Latency_ms(0.5, recent)),
            Number(statistics.Latency_ms(0.95, recent)),
            last.reports == 0 ? "none" : fmt::format("{:.1f}", age_s),
            std::to_string(last.stablePts)};
}

}  // namespace

std::vector<std::string> LiveTable(const std::vector<CameraLine>& cameras, TimePoint now) {
    TextTable table({{"#", Align::kLeft},
                     {"size", Align::kLeft},
                     {"fps"},
                     {"captured UTC"},
                     {"D ms"},
                     {"±us"},
                     {"good"},
                     {"lat50"},
                     {"lat95"},
                     {"SR s"},
                     {"stable PTS"}});
    std::vector<std::string> lines;
    for (const CameraLine& camera : cameras) {
        lines.push_back(Legend(camera));
        table.AddRow(Row(camera, now));
    }
    lines.emplace_back();
    for (std::string& line : table.Lines())
        lines.push_back(std::move(line));
    return lines;
}

std::vector<std::string> SummaryTable(const std::vector<CameraLine>& cameras) {
    TextTable table({{"#", Align::kLeft},
                     {"frames"},
                     {"seconds"},
                     {"fps"},
                     {"lost"},
                     {"reports"},
                     {"good"},
                     {"lat50"},
                     {"lat95"},
                     {"lat max"},
                     {"D ms"},
                     {"±us"}});
    std::vector<std::string> lines;
    for (const CameraLine& camera : cameras) {
        const StreamStatistics& statistics = *camera.statistics;
        const FrameRow& last = statistics.Last();
        const std::size_t all = StreamStatistics::kKept;
        lines.push_back(Legend(camera));
        table.AddRow({std::to_string(camera.number), std::to_string(statistics.Frames()),
                      Number(statistics.Seconds()), Number(statistics.FrameRate(all)),
                      std::to_string(last.lostPackets), std::to_string(last.reports),
                      Share(statistics.GoodShare()), Number(statistics.Latency_ms(0.5, all)),
                      Number(statistics.Latency_ms(0.95, all)), Number(statistics.Latency_ms(1.0, all)),
                      std::to_string(last.D.count()), std::to_string(last.D_uncert.count())});
    }
    lines.emplace_back();
    for (std::string& line : table.Lines())
        lines.push_back(std::move(line));
    return lines;
}

std::vector<std::string> IcmpSummary(const std::vector<CameraLine>& cameras) {
    constexpr double kDisagreement_ms = 1'000.0;
    std::vector<std::string> lines;
    for (const CameraLine& camera : cameras) {
        if (!camera.icmp)
            continue;
        const FrameRow& last = camera.statistics->Last();
        const std::optional<double> latency_ms = camera.statistics->ClockLatency_ms();
        const double D_uncert_ms = std::chrono::duration<double, std::milli>(last.D_uncert).count();
        std::string line =
            fmt::format("{}  ICMP: D {} ms ±{:.1f}", camera.number, last.D.count(), D_uncert_ms);
        if (!latency_ms) {
            lines.push_back(line + ", no estimate to compare it with");
            continue;
        }
        const double D_hat_ms = *latency_ms - static_cast<double>(camera.meanLatency.count());
        const double difference_ms = static_cast<double>(last.D.count()) - D_hat_ms;
        lines.push_back(line + fmt::format(", D - D_hat {:.0f} ms", difference_ms));
        if (std::fabs(difference_ms) > kDisagreement_ms)
            lines.push_back(fmt::format(
                "{}  WARNING: the camera's sender reports come from another clock than its ICMP time stamps; "
                "do not use --icmp with it",
                camera.number));
    }
    return lines;
}

ConsoleView::ConsoleView(bool inPlace)
    : inPlace_(inPlace) {}

std::chrono::seconds ConsoleView::Interval() const {
    return std::chrono::seconds(inPlace_ ? 1 : 10);
}

std::chrono::seconds ConsoleView::FirstAfter() const {
    return inPlace_ ? std::chrono::seconds(0) : Interval();
}

void ConsoleView::Show(const std::vector<std::string>& lines) {
    Clear();
    const std::size_t width = Terminal::Width();
    for (const std::string& line : lines) {
        // A line that wraps would break the count of lines that Clear goes back.
        std::string shown = line;
        while (inPlace_ && ShownWidth(shown) >= width)
            shown.pop_back();
        fmt::print("{}\n", shown);
    }
    if (!inPlace_)
        fmt::print("\n");
    std::fflush(stdout);
    if (inPlace_)
        shown_ = lines;
}

void ConsoleView::Clear() {
    if (shown_.empty())
        return;
    fmt::print("\x1b[{}A\x1b[J", shown_.size());  // up to the first line, and clear to the end of the screen
    std::fflush(stdout);
    shown_.clear();
}

void ConsoleView::News(const std::string& text) {
    const std::vector<std::string> table = shown_;
    Clear();
    fmt::print(stderr, "camclock: {}\n", text);
    if (!table.empty())
        Show(table);
}

}  // namespace camclock::app
