#pragma once

#include "util/SortedWindow.h"

namespace camclock {

/// Status of `MedianFilter`.
enum MedianStatus : int {
    kMedianOk = 0,
    kMedianEvenMask = 5,    ///< warning: the mask size was even and was reduced by one
    kMedianBadSize = -6,    ///< length or mask size below 1; nothing is written
    kMedianNullArray = -8,  ///< an array is null; nothing is written
    kMedianNoMemory = -9,   ///< no working memory; the destination holds a copy of the source
};

/// Sliding median: `destination[i]` is the middle one of the `maskSize` sorted values around
/// `source[i]`. Positions before the first element count as the first, those past the last as the last.
/// The arrays may be the same one.
///
/// Time: length × (log length + moves within a sorted window of at most length values), whatever the mask
/// size. Not-a-numbers sort behind all other values. Throws nothing.
int MedianFilter(const double* source, double* destination, int length, int maskSize);

}  // namespace camclock
