#pragma once

#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/views/StreamLine.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace camclock::app {

/// One column of the frames' lines: its name is CSV's header and JSON's key, and docs/program.md holds all
/// three texts.
struct FrameColumn {
    using Value = std::variant<std::monostate, bool, std::int64_t, std::string>;  // monostate: not known

    const char* name;
    const char* unit;
    const char* what;
    Value (*value)(const FrameRow& row, const StreamName& of);
};

/// All of them, in their order. New ones go to the end: who reads by position keeps reading.
const std::vector<FrameColumn>& FrameColumns();

std::string CsvHeader();
std::string CsvLine(const FrameRow& row, const StreamName& of);
std::string JsonLine(const FrameRow& row, const StreamName& of);

/// A field of CSV: with a comma, quote or line end it stands in quotes (RFC 4180, 2).
std::string CsvField(const std::string& text);

}  // namespace camclock::app
