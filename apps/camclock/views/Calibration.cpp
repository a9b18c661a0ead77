#include "apps/camclock/views/Calibration.h"

#include "apps/camclock/views/FrameText.h"
#include "apps/camclock/views/Statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;

/// The number that `text` is, of so many digits.
std::optional<int> Digits(std::string_view text, std::size_t fewest, std::size_t most) {
    if (text.size() < fewest || text.size() > most)
        return std::nullopt;
    int number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

/// "ss", "ss.m" to "ss.mmm".
std::optional<milliseconds> Seconds(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto whole = Digits(text.substr(0, point), 1, 2);
    if (!whole || *whole > 59)
        return std::nullopt;
    if (point == std::string_view::npos)
        return std::nullopt;  // a clock without milliseconds measures none
    const std::string_view part = text.substr(point + 1);
    auto fraction = Digits(part, 1, 3);
    if (!fraction)
        return std::nullopt;
    for (std::size_t i = part.size(); i < 3; ++i)
        *fraction *= 10;
    return milliseconds(*whole * 1000 + *fraction);
}

double Milliseconds(Ticks ticks) {
    return static_cast<double>(ticks.count()) / 1e4;
}

double Mean(const std::vector<double>& values) {
    double sum = 0.0;
    for (const double value : values)
        sum += value;
    return sum / static_cast<double>(values.size());
}

/// Two standard errors of the mean.
double TwoErrors(const std::vector<double>& values, double mean) {
    double squares = 0.0;
    for (const double value : values)
        squares += (value - mean) * (value - mean);
    const auto count = static_cast<double>(values.size());
    return 2.0 * std::sqrt(squares / (count - 1.0) / count);
}

}  // namespace

std::string PictureFile(int number) {
    return fmt::format("calibrate-{:02}.png", number);
}

std::string CalibrationCsv(const std::vector<CalibrationPicture>& pictures) {
    std::string text = "picture,rtp_ts,precise_host,arrived_host\n";
    for (const CalibrationPicture& picture : pictures)
        text +=
            fmt::format("{},{},{},{}\n", PictureFile(picture.number), picture.rtp_ts,
                        IsoTimeMicroseconds(picture.precise_host), IsoTimeMicroseconds(picture.arrived_host));
    return text;
}

std::optional<ClockReading> ParseReading(std::string_view text) {
    const std::size_t last = text.rfind(':');
    const auto seconds = Seconds(last == std::string_view::npos ? text : text.substr(last + 1));
    if (!seconds)
        return std::nullopt;
    if (last == std::string_view::npos)
        return ClockReading{*seconds, std::chrono::minutes(1)};
    const std::string_view front = text.substr(0, last);
    const std::size_t first = front.find(':');
    const auto minutes = Digits(first == std::string_view::npos ? front : front.substr(first + 1), 1, 2);
    if (!minutes || *minutes > 59)
        return std::nullopt;
    const milliseconds sinceHour = *seconds + std::chrono::minutes(*minutes);
    if (first == std::string_view::npos)
        return ClockReading{sinceHour, std::chrono::hours(1)};
    const auto hours = Digits(front.substr(0, first), 1, 2);
    if (!hours || *hours > 23)
        return std::nullopt;
    return ClockReading{sinceHour + std::chrono::hours(*hours), std::chrono::hours(24)};
}

TimePoint NearestInstant(const ClockReading& reading, TimePoint near_host, std::chrono::seconds utcOffset) {
    const Ticks period = reading.period;
    const Ticks local = near_host.time_since_epoch() + Ticks(utcOffset);
    Ticks back = (local - Ticks(reading.since)) % period;  // so long ago did it show this
    if (back < Ticks(0))
        back += period;
    if (back > period / 2)
        back -= period;
    return near_host - back;
}

std::optional<std::map<int, ClockReading>> ParseReadings(const std::string& text, int& wrong) {
    std::map<int, ClockReading> readings;
    std::istringstream lines(text);
    wrong = 0;
    for (std::string line; std::getline(lines, line);) {
        ++wrong;
        std::istringstream words(line);
        std::string number;
        std::string reading;
        std::string more;
        words >> number >> reading >> more;
        if (number.empty() || number.front() == '#')
            continue;
        const auto picture = Digits(number, 1, 3);
        const auto parsed = ParseReading(reading);
        if (!picture || !parsed || !more.empty())
            return std::nullopt;
        readings[*picture] = *parsed;
    }
    return readings;
}

std::optional<Calibration> Calibrate(const std::vector<CalibrationPicture>& pictures, double refresh_Hz,
                                     double wait_ms) {
    const double halfRefresh_ms = 500.0 / refresh_Hz;
    std::vector<double> all;
    for (const CalibrationPicture& picture : pictures)
        if (picture.shown_host)
            all.push_back(Milliseconds(picture.precise_host - *picture.shown_host) - halfRefresh_ms);
    const double median = Percentile(all, 0.5);
    Calibration result;
    result.read = all.size();
    std::vector<double> kept;
    for (const CalibrationPicture& picture : pictures) {
        if (!picture.shown_host)
            continue;
        const double latency_ms = Milliseconds(picture.precise_host - *picture.shown_host) - halfRefresh_ms;
        if (std::abs(latency_ms - median) > kMisread_ms)
            result.outliers.push_back(picture.number);
        else
            kept.push_back(latency_ms);
    }
    result.used = kept.size();
    if (kept.size() < kFewestReadings)
        return std::nullopt;
    result.least_ms = Mean(kept);
    result.mean_ms = result.least_ms + wait_ms;
    result.error_ms = TwoErrors(kept, result.least_ms);
    return result;
}

std::string CalibrationText(const Calibration& calibration) {
    std::string text;
    for (const int number : calibration.outliers)
        text += fmt::format("left out, more than {:.0f} ms from the median: {}\n", kMisread_ms,
                            PictureFile(number));
    return text +
           fmt::format("--least-latency {:.1f} --mean-latency {:.0f}  (error {:.1f} ms, {} of {} frames)\n",
                       calibration.least_ms, calibration.mean_ms, calibration.error_ms, calibration.used,
                       calibration.read);
}

}  // namespace camclock::app
