#include "apps/camclock/views/TextTable.h"

#include <algorithm>
#include <utility>

namespace camclock::app {

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

std::vector<std::string> TextTable::Lines() const {
    std::vector<std::size_t> widths(columns_.size());
    for (const auto& row : rows_)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], ShownWidth(row[i]));

    std::vector<std::string> lines;
    for (const auto& row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - ShownWidth(row[i]), ' ');
            if (i > 0)
                line += "  ";
            line += columns_[i].align == Align::kLeft ? row[i] + padding : padding + row[i];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(std::move(line));
    }
    return lines;
}

std::size_t ShownWidth(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

}  // namespace camclock::app
