#pragma once

#include "util/SortedWindow.h"

#include <array>
#include <cstddef>

namespace camclock {

/// The latest latencies of one stream, 51 at most, and their median.
///
/// The median is the one output of `MedianFilter` that the estimator needs: that at index n / 2 for
/// n samples and a mask of n. An odd n gives the median of all samples; an even one shortens the
/// mask, which leaves the oldest out.
class LatencyWindow {
public:
    static constexpr std::size_t kCapacity = 51;  // two seconds at 25 frames/s, and odd: an exact median

    /// Appends the newest latency; a full window loses its oldest.
    void Append(double latency_us) {
        if (count_ < kCapacity) {
            samples_[count_++] = latency_us;
            sorted_.Insert(latency_us);
            return;
        }
        sorted_.Replace(samples_[oldest_], latency_us);
        samples_[oldest_] = latency_us;
        oldest_ = oldest_ + 1 == kCapacity ? 0 : oldest_ + 1;
    }

    /// The median, in microseconds; the window is not empty.
    double Median() const {
        if (count_ % 2 == 1)
            return sorted_[count_ / 2];
        return sorted_.SelectWithout(samples_[oldest_], (count_ - 1) / 2);
    }

private:
    std::array<double, kCapacity> samples_{};  // a ring: the oldest stands at oldest_
    std::array<double, kCapacity> memory_{};
    SortedWindow sorted_{memory_.data()};
    std::size_t count_ = 0;
    std::size_t oldest_ = 0;
};

}  // namespace camclock
