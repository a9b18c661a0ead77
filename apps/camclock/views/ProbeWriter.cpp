#include "apps/camclock/views/ProbeWriter.h"

#include "apps/camclock/views/FrameColumns.h"
#include "apps/camclock/views/FrameText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace camclock::app {
std::string ProbeTableHeader(std::size_t width) {
    return fmt::format("{:<{}}  {:<24}  {:>16}  {:>9}  {:>9}", "host", width, "measured UTC",
                       "host-camera ms", "±rtt/2 ms", "trust ±ms");
}

std::string ProbeTableLine(const std::string& host, const ProbeOutcome& outcome, std::size_t width) {
    return fmt::format("{:<{}}  {:<24}  {:>16.2f}  {:>9.2f}  {:>9.2f}", host, width, IsoTime(outcome.at_host),
                       outcome.result.difference, outcome.result.uncertainty,
                       BoundToTrust_ms(outcome.result));
}

std::string ProbeCsvHeader() {
    return "host,time,difference_ms,uncertainty_ms,bound_ms,error";
}

std::string ProbeCsvLine(const std::string& host, const ProbeOutcome& outcome) {
    if (outcome.failure)
        return fmt::format("{},,,,,{}", CsvField(host), CsvField(outcome.failure->what));
    return fmt::format("{},{},{:.2f},{:.2f},{:.2f},", CsvField(host), IsoTime(outcome.at_host),
                       outcome.result.difference, outcome.result.uncertainty,
                       BoundToTrust_ms(outcome.result));
}

std::string ProbeJsonLine(const std::string& host, const ProbeOutcome& outcome) {
    nlohmann::ordered_json line{{"host", host}};
    if (outcome.failure) {
        line["error"] = outcome.failure->what;
    } else {
        line["time"] = IsoTime(outcome.at_host);
        line["difference_ms"] = outcome.result.difference;
        line["uncertainty_ms"] = outcome.result.uncertainty;
        line["bound_ms"] = BoundToTrust_ms(outcome.result);
    }
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace camclock::app
