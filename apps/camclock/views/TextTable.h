#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace camclock::app {

/// Lines of text in columns that are as wide as what stands in them.
class TextTable {
public:
    enum class Align { kLeft, kRight };

    struct Column {
        std::string title;
        Align align = Align::kRight;
    };

    explicit TextTable(std::vector<Column> columns);

    /// One cell a column; missing ones are empty.
    void AddRow(std::vector<std::string> cells);

    /// Title and rows, a line each, without blanks at their ends.
    std::vector<std::string> Lines() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/// The number of characters that UTF-8 text shows.
std::size_t ShownWidth(const std::string& text);

}  // namespace camclock::app
