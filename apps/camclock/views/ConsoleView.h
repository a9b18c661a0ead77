#pragma once

#include "apps/camclock/views/StreamStatistics.h"

#include <chrono>
#include <string>
#include <vector>

namespace camclock::app {

/// One camera as the table shows it; a value, so that tables can be made up in tests.
struct CameraLine {
    int number = 1;
    std::string label;
    std::string transport;
    std::string state;  ///< "connecting", "receiving", "waiting", "ended"
    std::string codec;  ///< empty: not known yet
    std::string size;   ///< "640x480 4:2:0"; empty: not known
    const StreamStatistics* statistics = nullptr;
    bool icmp = false;  ///< the clock difference was to be measured
    std::chrono::milliseconds meanLatency{30};
};

/// The live table as lines of text: a legend that names the cameras, and one row a camera.
/// `now` is the host's time, for the age of the last sender report.
std::vector<std::string> LiveTable(const std::vector<CameraLine>& cameras, TimePoint now);

/// The closing summary: one row a camera over its whole run.
std::vector<std::string> SummaryTable(const std::vector<CameraLine>& cameras);

/// What a measured clock difference has to do with the estimated one: a line for each camera with ICMP, and a
/// warning where the two disagree by more than a second.
std::vector<std::string> IcmpSummary(const std::vector<CameraLine>& cameras);

/// Shows the live table on standard output. On a terminal it stays in place; elsewhere it is printed now and
/// then. News go to standard error and do not tear the table.
class ConsoleView {
public:
    /// `inPlace`: standard output is a terminal that nobody else writes to.
    explicit ConsoleView(bool inPlace);

    /// How often the table is worth showing.
    std::chrono::seconds Interval() const;

    /// When to show it first: at once in place, else when there is something to tell.
    std::chrono::seconds FirstAfter() const;

    void Show(const std::vector<std::string>& lines);

    /// Takes the table away, so that other text can follow.
    void Clear();

    void News(const std::string& text);

private:
    bool inPlace_;
    std::vector<std::string> shown_;
};

}  // namespace camclock::app
