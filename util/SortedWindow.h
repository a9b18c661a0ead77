#pragma once

#include <cstddef>

namespace camclock {

/// The sorted values of a sliding window, over memory that the caller provides: the one median
/// logic of the library, used by `MedianFilter` and by the latency estimator, which needs a single
/// output of that filter per packet.
///
/// Inserting, removing and replacing a value costs a binary search and the move of the values between.
class SortedWindow {
public:
    /// `storage` has room for all values that the window will ever hold at once.
    explicit SortedWindow(double* storage)
        : values_(storage) {}

    /// A strict weak order over all doubles: not-a-numbers equal each other and stand behind everything else.
    static bool Less(double a, double b) { return a < b || (b != b && a == a); }

    std::size_t Size() const { return size_; }

    /// The k-th smallest value, counted from 0.
    double operator[](std::size_t k) const { return values_[k]; }

    /// How many values are smaller than `value`.
    std::size_t CountBelow(double value) const {
        std::size_t low = 0;
        std::size_t count = size_;
        while (count > 0) {
            const std::size_t half = count / 2;
            if (Less(values_[low + half], value)) {
                low += half + 1;
                count -= half + 1;
            } else {
                count = half;
            }
        }
        return low;
    }

    void Insert(double value) {
        const std::size_t position = CountBelow(value);
        for (std::size_t k = size_; k > position; --k)
            values_[k] = values_[k - 1];
        values_[position] = value;
        ++size_;
    }

    /// Removes one value equal to `value`, which is in the window.
    void Remove(double value) {
        const std::size_t position = CountBelow(value);
        --size_;
        for (std::size_t k = position; k < size_; ++k)
            values_[k] = values_[k + 1];
    }

    /// Removes `oldValue`, which is in the window, and inserts `newValue`.
    void Replace(double oldValue, double newValue) {
        std::size_t k = CountBelow(oldValue);
        if (Less(oldValue, newValue)) {
            for (; k + 1 < size_ && Less(values_[k + 1], newValue); ++k)
                values_[k] = values_[k + 1];
        } else {
            for (; k > 0 && Less(newValue, values_[k - 1]); --k)
                values_[k] = values_[k - 1];
        }
        values_[k] = newValue;
    }

    /// The k-th smallest value (from 0) of the window with one value equal to
    /// `value`, which is in it, left out.
    double SelectWithout(double value, std::size_t k) const {
        return CountBelow(value) <= k ? values_[k + 1] : values_[k];
    }

private:
    double* values_;
    std::size_t size_ = 0;
};

}  // namespace camclock
