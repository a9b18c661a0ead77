#pragma once

#include "apps/camclock/sources/HostProbe.h"

#include <cstddef>
#include <string>

namespace camclock::app {

// One probing as a line of text. The host's name in front of a table's line is padded to `width` characters.

std::string ProbeTableHeader(std::size_t width);
std::string ProbeTableLine(const std::string& host, const ProbeOutcome& outcome, std::size_t width);

std::string ProbeCsvHeader();
std::string ProbeCsvLine(const std::string& host, const ProbeOutcome& outcome);

std::string ProbeJsonLine(const std::string& host, const ProbeOutcome& outcome);

}  // namespace camclock::app
