#pragma once

#include "logging/AsynchronousLog.h"
#include "support/WaitableList.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <sstream>
#include <string>

namespace camclock::test {

/// Waits until everything that was posted to `log` so far has been written; false
/// when the deadline passes first.
inline bool WaitUntilWritten(AsynchronousLog& log) {
    const auto written = std::make_shared<std::promise<void>>();
    log.Post([written](std::stringstream& out) {
        out.str(std::string());  // leaves no trace in the sink
        written->set_value();
    });
    return written->get_future().wait_for(kDeadline) == std::future_status::ready;
}

/// Waits until the destruction of `log` has begun on another thread, whose worker is kept busy meanwhile:
/// from then on a message is dropped at once.
inline void WaitForDestruction(AsynchronousLog& log) {
    EXPECT_TRUE(WaitUntil([&log] {
        const auto token = std::make_shared<int>(0);
        log.Post([token](std::stringstream& out) { out << "must not be written"; });
        return token.use_count() == 1;
    }));
}

}  // namespace camclock::test
