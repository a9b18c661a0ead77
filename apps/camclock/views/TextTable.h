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
        int rank = 0;          ///< where there is no room the column of the greatest rank goes first; 0 stays
        bool elastic = false;  ///< its texts may be cut in the middle
    };

    explicit TextTable(std::vector<Column> columns);

    /// One cell a column; missing ones are empty.
    void AddRow(std::vector<std::string> cells);

    /// Title and rows, a line each, without blanks at their ends, none longer than `width`: elastic texts are
    /// cut, first to 16 characters, then columns go by their rank, and then elastic texts are cut to what is
    /// left.
    std::vector<std::string> Lines(std::size_t width = kUnlimited) const;

    static constexpr std::size_t kUnlimited = 1'000'000;

private:
    std::vector<std::size_t> _Widths() const;
    std::vector<std::size_t> _Fit(std::size_t width) const;
    bool _DropOne(std::vector<std::size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/// The number of characters that UTF-8 text shows.
std::size_t ShownWidth(const std::string& text);

/// UTF-8 text in `width` characters at most: what is too much goes from its middle.
std::string CutToWidth(const std::string& text, std::size_t width);

}  // namespace camclock::app
