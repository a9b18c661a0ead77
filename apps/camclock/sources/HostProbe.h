#pragma once

#include "apps/camclock/Failure.h"

#include "probe/TimeProbe.h"

#include <camclock/TimePoint.h>

#include <cstdint>
#include <optional>
#include <string>

namespace camclock::app {

/// One probing of one host, as the user wants it.
struct ProbeSettings {
    int requests = 5;
    int timeout_ms = 300;                    ///< of each request
    std::int64_t expectedDifference_ms = 0;  ///< host less camera; tells the day
};

/// How far a measurement can be off, in ms: half the round trip, and what is lost by clocks that are read to
/// whole milliseconds (docs/clocks.md).
constexpr double BoundToTrust_ms(const ProbeResult& result) {
    return result.uncertainty + 2.5;
}

/// A measurement, or why there is none.
struct ProbeOutcome {
    TimePoint at_host{};  ///< when it was complete
    ProbeResult result;
    std::optional<Failure> failure;
};

/// Measures one camera's clock, and finds out what is in the way when that does not work. One thread.
class HostProbe {
public:
    explicit HostProbe(std::string host);

    const std::string& Host() const { return host_; }

    ProbeOutcome Run(const ProbeSettings& settings);

    /// Empty when this process may open a raw socket.
    static std::optional<Failure> MissingRight();

private:
    std::optional<Failure> _CheckHost() const;

    const std::string host_;
};

}  // namespace camclock::app
