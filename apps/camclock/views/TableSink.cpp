#include "apps/camclock/views/TableSink.h"

#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/StreamTable.h"
#include "apps/camclock/views/Terminal.h"
#include "apps/camclock/views/TextTable.h"

#include <camclock/Receiver.h>

#include <fmt/format.h>

namespace camclock::app {
namespace {

constexpr std::chrono::seconds kPageTime{5};

}  // namespace

void TableSink::Tick(std::chrono::steady_clock::time_point now, const LineMaker& lines) {
    const std::chrono::seconds interval(inPlace_ ? 1 : 10);
    if (!next_) {
        next_ = inPlace_ ? now : now + interval;  // elsewhere when there is something to tell
        pageSince_ = now;
    }
    if (now < *next_)
        return;
    next_ = now + interval;
    if (now - pageSince_ >= kPageTime) {
        pageSince_ = now;
        ++page_;
    }
    constexpr Terminal::Size kNoScreen{TextTable::kUnlimited, TextTable::kUnlimited};
    _Show(LiveTable(lines(), receiver::Now(), inPlace_ ? Terminal::GetSize() : kNoScreen, page_));
}

void TableSink::_Show(const std::vector<std::string>& lines) {
    _Clear();
    for (const std::string& line : lines)
        Output::Standard().Line(line);
    if (inPlace_)
        shown_ = lines;
    else
        Output::Standard().Line("");
}

void TableSink::_Clear() {
    if (shown_.empty())
        return;
    // Up to the first line, and clear to the end of the screen. A terminal that was made narrower has folded
    // the lines.
    const std::size_t columns = Terminal::GetSize().columns;
    std::size_t rows = 0;
    for (const std::string& line : shown_)
        rows += ShownWidth(line) / columns + 1;
    Output::Standard().Raw(fmt::format("\x1b[{}A\r\x1b[J", rows));
    shown_.clear();
}

void TableSink::News(const std::string& text) {
    const std::vector<std::string> table = shown_;
    _Clear();
    Output::Standard().Flush(std::chrono::milliseconds(50));
    Output::Error().Line("camclock: " + text);
    Output::Error().Flush(std::chrono::milliseconds(50));
    if (!table.empty())
        _Show(table);
}

}  // namespace camclock::app
