#pragma once

#include <algorithm>
#include <vector>

namespace camclock::bench {

/// The sliding median as one would write it at first: a sorted window, kept in order by insertion and
/// removal.
inline int PlainMedianFilter(const double* source, double* destination, int length, int maskSize) {
    if (source == nullptr || destination == nullptr)
        return -8;
    if (length < 1 || maskSize < 1)
        return -6;
    std::copy(source, source + length, destination);
    const int mask = maskSize % 2 == 1 ? maskSize : maskSize - 1;
    const int status = mask == maskSize ? 0 : 5;
    if (mask == 1 || length < 3)
        return status;
    const int half = (mask - 1) / 2;
    const std::vector<double> x(source, source + length);
    const auto at = [&](int i) { return x[static_cast<std::size_t>(std::clamp(i, 0, length - 1))]; };
    std::vector<double> window;
    for (int i = -half; i <= half; ++i)
        window.push_back(at(i));
    std::sort(window.begin(), window.end());
    destination[0] = window[static_cast<std::size_t>(half)];
    for (int i = 1; i < length; ++i) {
        window.erase(std::lower_bound(window.begin(), window.end(), at(i - half - 1)));
        const double entering = at(i + half);
        window.insert(std::upper_bound(window.begin(), window.end(), entering), entering);
        destination[i] = window[static_cast<std::size_t>(half)];
    }
    return status;
}

}  // namespace camclock::bench
