#include "apps/camclock/views/TextTable.h"

#include <algorithm>
#include <utility>

namespace camclock::app {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kWellCut = 16;

/// The bytes of the first `count` characters.
std::size_t BytesOf(const std::string& text, std::size_t count) {
    std::size_t end = 0;
    while (end < text.size()) {
        if ((static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U && count-- == 0)
            break;
        ++end;
    }
    return end;
}

}  // namespace

TextTable::TextTable(std::vector<Column> columns)
    : columns_(std::move(columns)) {
    std::vector<std::string> titles;
    for (const Column& column : columns_)
        titles.push_back(column.title);
    rows_.push_back(std::move(titles));
}

void TextTable::AddRow(std::vector<std::string> cells) {
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

std::vector<std::size_t> TextTable::_Widths() const {
    std::vector<std::size_t> widths(columns_.size());
    for (const auto& row : rows_)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], ShownWidth(row[i]));
    return widths;
}

/// The shown column of the greatest rank gets no width; false when all that are left stay.
bool TextTable::_DropOne(std::vector<std::size_t>& widths) const {
    std::size_t next = columns_.size();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const bool mayGo = widths[i] > 0 && columns_[i].rank > 0;
        if (mayGo && (next == columns_.size() || columns_[i].rank > columns_[next].rank))
            next = i;
    }
    if (next == columns_.size())
        return false;
    widths[next] = 0;
    return true;
}

/// The widths of the columns within a line; 0 for those that are left out.
std::vector<std::size_t> TextTable::_Fit(std::size_t width) const {
    std::vector<std::size_t> widths = _Widths();
    const auto tooMuch = [&widths, width] {
        std::size_t total = 0;
        for (const std::size_t column : widths)
            if (column > 0)
                total += column + (total == 0 ? 0 : kGap);
        return total > width ? total - width : 0;
    };
    const auto cut = [&](std::size_t least) {
        for (std::size_t i = 0; i < widths.size(); ++i)
            if (columns_[i].elastic && widths[i] > least)
                widths[i] -= std::min(tooMuch(), widths[i] - least);
    };
    cut(kWellCut);
    while (tooMuch() > 0 && _DropOne(widths)) {
    }
    cut(1);
    return widths;
}

std::vector<std::string> TextTable::Lines(std::size_t width) const {
    const std::vector<std::size_t> widths = _Fit(width);
    std::vector<std::string> lines;
    for (const auto& row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (widths[i] == 0)
                continue;
            const std::string cell = CutToWidth(row[i], widths[i]);
            const std::string padding(widths[i] - ShownWidth(cell), ' ');
            if (!line.empty())
                line += std::string(kGap, ' ');
            line += columns_[i].align == Align::kLeft ? cell + padding : padding + cell;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(CutToWidth(line, width));
    }
    return lines;
}

std::size_t ShownWidth(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::string CutToWidth(const std::string& text, std::size_t width) {
    const std::size_t length = ShownWidth(text);
    if (length <= width)
        return text;
    if (width < 3)
        return text.substr(0, BytesOf(text, width));
    const std::size_t front = (width - 1) / 2;
    const std::size_t back = width - 1 - front;
    return text.substr(0, BytesOf(text, front)) + "~" + text.substr(BytesOf(text, length - back));
}

}  // namespace camclock::app
