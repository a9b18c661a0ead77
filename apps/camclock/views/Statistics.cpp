#include "apps/camclock/views/Statistics.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace camclock::app {

double Percentile(std::vector<double> values, double share) {
    if (values.empty())
        return 0.0;
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    const auto last = static_cast<double>(values.size());
    const auto index = static_cast<std::ptrdiff_t>(std::clamp(rank, 1.0, last)) - 1;
    std::nth_element(values.begin(), values.begin() + index, values.end());
    return values[static_cast<std::size_t>(index)];
}

void RecentValues::Add(double value) {
    if (values_.size() < capacity_) {
        values_.push_back(value);
        return;
    }
    values_[next_] = value;
    next_ = (next_ + 1) % capacity_;
}

std::vector<double> RecentValues::Newest(std::size_t count) const {
    std::vector<double> newest;
    count = std::min(count, values_.size());
    newest.reserve(count);
    for (std::size_t i = values_.size() - count; i < values_.size(); ++i)
        newest.push_back(values_[(next_ + i) % values_.size()]);
    return newest;
}

}  // namespace camclock::app
