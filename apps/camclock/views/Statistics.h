#pragma once

#include <cstddef>
#include <vector>

namespace camclock::app {

/// The value that a `share` (0 to 1) of all values does not exceed: the nearest rank, so that it is always
/// one of them, and share 1 gives the greatest. 0 for no values.
double Percentile(std::vector<double> values, double share);

/// The newest values of a run, oldest first.
class RecentValues {
public:
    explicit RecentValues(std::size_t capacity)
        : capacity_(capacity) {}

    void Add(double value);

    /// The newest `count` of them, or all there are.
    std::vector<double> Newest(std::size_t count) const;

    std::size_t Size() const { return values_.size(); }

private:
    std::size_t capacity_;
    std::size_t next_ = 0;  // where the next value goes, once the ring is full
    std::vector<double> values_;
};

}  // namespace camclock::app
