#pragma once

#include "apps/camclock/views/StreamLine.h"
#include "apps/camclock/views/Terminal.h"

#include <camclock/TimePoint.h>

#include <cstddef>
#include <string>
#include <vector>

namespace camclock::app {

/// The live table as lines of text, one row a stream, within `screen`: columns go by their rank, and what is
/// too long for the screen is shown page by page. `page` counts up for ever; `now` is the host's time, for
/// the age of the last sender report.
std::vector<std::string> LiveTable(const std::vector<StreamLine>& streams, TimePoint now,
                                   Terminal::Size screen, std::size_t page);

/// The closing summary: one row a stream over its whole run, and a line for each that failed.
std::vector<std::string> SummaryTable(const std::vector<StreamLine>& streams, std::size_t width);

/// The same as JSON, an array with one object a stream.
std::string SummaryJson(const std::vector<StreamLine>& streams);

/// What a measured clock difference has to do with the estimated one: a line for each camera with ICMP, and a
/// warning where the two disagree by more than a second.
std::vector<std::string> IcmpSummary(const std::vector<StreamLine>& streams);

}  // namespace camclock::app
