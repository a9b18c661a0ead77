#pragma once

#include "receiver/MedianClock.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace camclock::receiver {

/// Where the clocks of ended epochs come to their end: it takes some 11 ms each, more while `D` is measured,
/// and no feeding thread waits for it. A thread exists only while there is something to end.
///
/// Any thread. The destructor waits until all have ended.
class Graveyard {
public:
    /// So many may wait; while they do there shall be no new ones, or foreign datagrams would breed threads.
    static constexpr std::size_t kMost = 64;

    Graveyard() = default;
    ~Graveyard();
    Graveyard(const Graveyard&) = delete;
    Graveyard& operator=(const Graveyard&) = delete;

    void Bury(std::unique_ptr<MedianClock> clock);
    bool IsFull();

private:
    void _Start();
    void _Run();

    std::mutex mutex_;  // guards all below
    std::vector<std::unique_ptr<MedianClock>> waiting_;
    std::size_t ending_ = 0;  // taken by the thread, not yet ended
    bool running_ = false;
    std::thread thread_;
};

}  // namespace camclock::receiver
