#include "apps/camclock/views/DemoReport.h"

#include "apps/camclock/views/Statistics.h"
#include "apps/camclock/views/TextTable.h"

#include <camclock/receiver/Settings.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <utility>

namespace camclock::app {
namespace {

/// The narrowest screen that everything fits.
constexpr std::size_t kWidth = 60;

double Milliseconds(Ticks span) {
    return std::chrono::duration<double, std::milli>(span).count();
}

ErrorFigures FiguresOf(const std::vector<double>& errors_ms) {
    return {Percentile(errors_ms, 0.5), Percentile(errors_ms, 0.95), Percentile(errors_ms, 0.99),
            Percentile(errors_ms, 1.0)};
}

nlohmann::ordered_json Json(const ErrorFigures& figures) {
    return {{"median", figures.median}, {"p95", figures.p95}, {"p99", figures.p99}, {"max", figures.max}};
}

}  // namespace

DemoComparison::DemoComparison(std::string transport, std::optional<std::chrono::milliseconds> meanLatency)
    : measuring_(!meanLatency) {
    result_.transport = std::move(transport);
    result_.meanLatency_ms = meanLatency ? meanLatency->count() : 0;
}

std::optional<MeasuredLatency> DemoComparison::Add(const FrameRow& row, const TestCamera::Truth& truth) {
    ++result_.frames;
    if (!row.Synced())
        return std::nullopt;
    if (measuring_) {
        latencies_ms_.push_back(Milliseconds(row.frame.arrived_host - truth.madeAt_host));
        // Against the line and not the arrivals: the first frames of a stream may leave before the server has
        // found its pace, and the line remembers them.
        const TimePoint fastest_host = row.frame.precise_host + receiver::Settings().meanLatency;
        if (latencies_ms_.size() > kMeasured / 2)
            lineLatencies_ms_.push_back(Milliseconds(fastest_host - truth.madeAt_host));
        if (latencies_ms_.size() < kMeasured)
            return std::nullopt;
        measuring_ = false;
        MeasuredLatency measured;
        measured.mean = std::chrono::milliseconds(std::llround(Percentile(latencies_ms_, 0.5)));
        measured.least = std::chrono::microseconds(std::llround(Percentile(lineLatencies_ms_, 0.5) * 1000.0));
        result_.meanLatency_ms = measured.mean.count();
        return measured;
    }
    if (settling_ > 0) {
        --settling_;
        return std::nullopt;
    }
    ++result_.compared;
    camclock_ms_.push_back(std::abs(Milliseconds(row.frame.median_host - truth.madeAt_host)));
    precise_ms_.push_back(std::abs(Milliseconds(row.frame.precise_host - truth.madeAt_host)));
    reception_ms_.push_back(std::abs(Milliseconds(row.frame.arrived_host - truth.madeAt_host)));
    camera_ms_.push_back(std::abs(Milliseconds(row.frame.captured_cam - truth.madeAt_host)));
    if (row.frame.trust == receiver::Trust::kGood)
        ++good_;
    result_.D_found_ms = static_cast<double>(row.frame.D.count());
    result_.D_true_ms = Milliseconds(truth.madeAt_host - truth.madeAt_cam);
    return std::nullopt;
}

DemoResult DemoComparison::Result() const {
    DemoResult result = result_;
    result.camclock = FiguresOf(camclock_ms_);
    result.precise = FiguresOf(precise_ms_);
    result.reception = FiguresOf(reception_ms_);
    result.camera = FiguresOf(camera_ms_);
    if (result.compared > 0)
        result.goodShare = static_cast<double>(good_) / static_cast<double>(result.compared);
    return result;
}

std::vector<std::string> DemoTable(const std::vector<DemoResult>& results) {
    std::vector<std::string> lines;
    for (const DemoResult& result : results) {
        TextTable table({{fmt::format("error in ms, {}", result.transport), TextTable::Align::kLeft},
                         {"median"},
                         {"p95", TextTable::Align::kRight, 1},
                         {"p99"},
                         {"max"}});
        const auto add = [&table](const char* name, const ErrorFigures& figures) {
            table.AddRow({name, fmt::format("{:.2f}", figures.median), fmt::format("{:.2f}", figures.p95),
                          fmt::format("{:.2f}", figures.p99), fmt::format("{:.2f}", figures.max)});
        };
        add("camclock, median", result.camclock);
        add("camclock, precise", result.precise);
        add("time of reception", result.reception);
        add("camera's own clock", result.camera);
        for (std::string& line : table.Lines(kWidth))
            lines.push_back(std::move(line));
        lines.push_back(fmt::format("{} frames, {} compared, {:.1f}% of them good", result.frames,
                                    result.compared, result.goodShare * 100.0));
        lines.push_back(
            fmt::format("D found {:.0f} ms, true {:.3f} ms", result.D_found_ms, result.D_true_ms));
        lines.push_back(fmt::format("mean latency {} ms", result.meanLatency_ms));
        lines.emplace_back();
    }
    if (!lines.empty())
        lines.pop_back();
    return lines;
}

std::string DemoJson(const std::vector<DemoResult>& results) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const DemoResult& result : results)
        array.push_back({{"transport", result.transport},
                         {"frames", result.frames},
                         {"compared", result.compared},
                         {"mean_latency_ms", result.meanLatency_ms},
                         {"camclock_error_ms", Json(result.camclock)},
                         {"precise_error_ms", Json(result.precise)},
                         {"reception_error_ms", Json(result.reception)},
                         {"camera_clock_error_ms", Json(result.camera)},
                         {"good_share", result.goodShare},
                         {"D_found_ms", result.D_found_ms},
                         {"D_true_ms", result.D_true_ms}});
    return array.dump(2);
}

}  // namespace camclock::app
