#pragma once

namespace camclock {

/// Called once by a log's worker thread. A recorder has thousands of these threads and each wakes a hundred
/// times a second, so the system may let up to a millisecond go by to wake several at once. Linux only; no
/// effect elsewhere.
void AllowLateWakeups();

}  // namespace camclock
