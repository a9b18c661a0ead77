#include "util/MedianFilter.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

namespace camclock {
namespace {

constexpr std::size_t kStackValues = 64;  // the latency estimator's windows hold 51 at most

/// The sorted values of one window: those that lie inside the array, and how often the first and the last
/// element stand for positions outside. Keeping the replicas as counts bounds the memory by the array,
/// whatever the mask.
double SelectMiddle(const SortedWindow& inside, double first, std::int64_t firstReplicas, double last,
                    std::int64_t lastReplicas, std::int64_t k) {
    double low = first;
    double high = last;
    std::int64_t lowReplicas = firstReplicas;
    std::int64_t highReplicas = lastReplicas;
    if (SortedWindow::Less(high, low)) {
        std::swap(low, high);
        std::swap(lowReplicas, highReplicas);
    }
    const auto belowLow = static_cast<std::int64_t>(inside.CountBelow(low));
    if (k < belowLow)
        return inside[static_cast<std::size_t>(k)];
    if (k < belowLow + lowReplicas)
        return low;
    k -= lowReplicas;
    const auto belowHigh = static_cast<std::int64_t>(inside.CountBelow(high));
    if (k < belowHigh)
        return inside[static_cast<std::size_t>(k)];
    if (k < belowHigh + highReplicas)
        return high;
    return inside[static_cast<std::size_t>(k - highReplicas)];
}

}  // namespace

int MedianFilter(const double* source, double* destination, int length, int maskSize) {
    if (source == nullptr || destination == nullptr)
        return kMedianNullArray;
    if (length < 1 || maskSize < 1)
        return kMedianBadSize;

    const auto count = static_cast<std::size_t>(length);
    if (source != destination)
        std::copy_n(source, count, destination);
    const int status = maskSize % 2 == 0 ? kMedianEvenMask : kMedianOk;
    const std::int64_t mask = maskSize % 2 == 0 ? maskSize - 1 : maskSize;
    if (mask == 1 || length < 3)
        return status;

    // Outputs are written over the inputs, so the values that the window still
    // has to give back are kept aside.
    double stack[2 * kStackValues];
    std::unique_ptr<double[]> heap;
    double* memory = stack;
    if (count > kStackValues) {
        heap.reset(new (std::nothrow) double[2 * count]);
        if (!heap)
            return kMedianNoMemory;
        memory = heap.get();
    }
    double* const input = memory;
    std::copy_n(destination, count, input);
    SortedWindow inside(memory + count);

    const std::int64_t half = (mask - 1) / 2;
    const std::int64_t end = length;
    const double first = input[0];
    const double last = input[count - 1];
    for (std::int64_t i = 0; i < std::min(half, end); ++i)
        inside.Insert(input[i]);
    for (std::int64_t i = 0; i < end; ++i) {
        const std::int64_t entering = i + half;
        const std::int64_t leaving = i - half - 1;
        if (entering < end && leaving >= 0)
            inside.Replace(input[leaving], input[entering]);
        else if (entering < end)
            inside.Insert(input[entering]);
        else if (leaving >= 0)
            inside.Remove(input[leaving]);
        const std::int64_t beforeFirst = std::max<std::int64_t>(0, half - i);
        const std::int64_t pastLast = std::max<std::int64_t>(0, i + half - (end - 1));
        destination[i] = SelectMiddle(inside, first, beforeFirst, last, pastLast, half);
    }
    return status;
}

}  // namespace camclock
