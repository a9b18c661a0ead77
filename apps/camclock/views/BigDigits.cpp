#include "apps/camclock/views/BigDigits.h"

#include <array>
#include <cstddef>

namespace camclock::app {
namespace {

constexpr std::size_t kLines = 5;

using Shape = std::array<std::string_view, kLines>;

/// One character of a shape is two columns of the terminal, whose cells are twice as high as wide.
constexpr std::array<Shape, 10> kDigits{{
    {"###", "# #", "# #", "# #", "###"},
    {"  #", "  #", "  #", "  #", "  #"},
    {"###", "  #", "###", "#  ", "###"},
    {"###", "  #", "###", "  #", "###"},
    {"# #", "# #", "###", "  #", "  #"},
    {"###", "#  ", "###", "  #", "###"},
    {"###", "#  ", "###", "# #", "###"},
    {"###", "  #", "  #", "  #", "  #"},
    {"###", "# #", "###", "# #", "###"},
    {"###", "# #", "###", "  #", "###"},
}};
constexpr Shape kColon{" ", "#", " ", "#", " "};
constexpr Shape kPoint{" ", " ", " ", " ", "#"};
constexpr Shape kBlank{" ", " ", " ", " ", " "};

const Shape& ShapeOf(char c) {
    if (c >= '0' && c <= '9')
        return kDigits.at(static_cast<std::size_t>(c - '0'));
    return c == ':' ? kColon : c == '.' ? kPoint : kBlank;
}

}  // namespace

std::vector<std::string> BigDigits(std::string_view text) {
    std::vector<std::string> lines(kLines);
    for (const char c : text)
        for (std::size_t i = 0; i < kLines; ++i) {
            if (!lines[i].empty())
                lines[i] += "  ";
            for (const char dot : ShapeOf(c).at(i))
                lines[i] += dot == '#' ? "\u2588\u2588" : "  ";
        }
    return lines;
}

}  // namespace camclock::app
