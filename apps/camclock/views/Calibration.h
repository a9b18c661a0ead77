#pragma once

#include <camclock/TimePoint.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace camclock::app {

/// One picture of a clock, on its way to what was read from it. Times are the host's.
struct CalibrationPicture {
    int number = 0;            ///< in its file's name, from 1
    std::uint32_t rtp_ts = 0;  ///< RTP time stamp of its frame (RFC 3550, 5.1)
    TimePoint precise_host{};  ///< by the floor line with a least latency of 0: when the fastest would come
    TimePoint arrived_host{};  ///< of its first packet
    std::optional<TimePoint> shown_host;  ///< what the clock in it shows
};

/// "calibrate-07.png".
std::string PictureFile(int number);

/// The pictures as CSV with a header: picture, rtp_ts, precise_host, arrived_host (UTC, ISO 8601, us).
std::string CalibrationCsv(const std::vector<CalibrationPicture>& pictures);

/// What a clock reads: so long after the last full minute, hour or day.
struct ClockReading {
    std::chrono::milliseconds since{0};
    std::chrono::milliseconds period{0};  ///< a minute, an hour or a day
};

/// Reads "ss.mmm", "mm:ss.mmm" or "hh:mm:ss.mmm"; one to three digits behind the point, none without one.
/// Empty for anything else.
std::optional<ClockReading> ParseReading(std::string_view text);

/// The instant nearest to `near_host` at which a clock shows this; `utcOffset`: of the clock, east positive.
TimePoint NearestInstant(const ClockReading& reading, TimePoint near_host, std::chrono::seconds utcOffset);

/// Lines "NN reading" by number of the picture; empty ones and those that begin with '#' are passed over.
/// `wrong` gets the number of the first line that is none of these.
std::optional<std::map<int, ClockReading>> ParseReadings(const std::string& text, int& wrong);

/// The latencies that pictures of a clock tell.
struct Calibration {
    double least_ms = 0.0;  ///< from capture to arrival of the fastest frame
    double mean_ms = 0.0;   ///< the same of the usual one
    double error_ms = 0.0;  ///< of both: two standard errors of the mean
    std::size_t used = 0;
    std::size_t read = 0;       ///< pictures that were read
    std::vector<int> outliers;  ///< numbers of those left out
};

/// A reading further than this from the median of all is taken for a misread digit.
inline constexpr double kMisread_ms = 100.0;

/// So few readings at least give a spread.
inline constexpr std::size_t kFewestReadings = 3;

/// From the pictures that were read. `refresh_Hz`: of the clock, which shows each time for that long, half of
/// it on the average before the picture. `wait_ms`: by so much more does the usual frame wait than the
/// fastest. Empty when fewer than `kFewestReadings` are left.
std::optional<Calibration> Calibrate(const std::vector<CalibrationPicture>& pictures, double refresh_Hz,
                                     double wait_ms);

/// What was left out, then the line to paste.
std::string CalibrationText(const Calibration& calibration);

}  // namespace camclock::app
