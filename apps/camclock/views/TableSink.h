#pragma once

#include "apps/camclock/views/RowSink.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app {

/// The live table on standard output. On a terminal it stays in place, elsewhere it is printed every ten
/// seconds. News go to standard error and do not tear the table.
class TableSink : public RowSink {
public:
    explicit TableSink(bool inPlace)
        : inPlace_(inPlace) {}

    void Add(const FrameRow& /*row*/, const StreamName& /*of*/) override {}
    void Tick(std::chrono::steady_clock::time_point now, const LineMaker& lines) override;
    void News(const std::string& text) override;
    void End() override { _Clear(); }

private:
    void _Show(const std::vector<std::string>& lines);
    void _Clear();

    const bool inPlace_;
    std::optional<std::chrono::steady_clock::time_point> next_;
    std::chrono::steady_clock::time_point pageSince_{};
    std::size_t page_ = 0;
    std::vector<std::string> shown_;
};

}  // namespace camclock::app
