#pragma once

#include "apps/camclock/sources/FrameRow.h"
#include "apps/camclock/views/StreamLine.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace camclock::app {

/// What frames become: lines of a file, a table on the screen.
///
/// One thread. A sink writes to an `Output` and does not care whether that works.
class RowSink {
public:
    virtual ~RowSink() = default;

    /// Before the first frame.
    virtual void Begin() {}

    virtual void Add(const FrameRow& row, const StreamName& of) = 0;

    /// Some times a second. `lines` makes the present state of all streams, for those who show it.
    virtual void Tick(std::chrono::steady_clock::time_point /*now*/, const LineMaker& /*lines*/) {}

    /// Something that the user should know.
    virtual void News(const std::string& text) = 0;

    /// After the last frame: the place is clear for other text.
    virtual void End() {}
};

enum class OutputFormat { kTable, kCsv, kJson };

/// `inPlace`: the table stays where it is on the screen, which nobody else writes to.
std::unique_ptr<RowSink> MakeRowSink(OutputFormat format, bool inPlace);

}  // namespace camclock::app
