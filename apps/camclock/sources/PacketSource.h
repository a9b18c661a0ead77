#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/StreamFeed.h"

#include <camclock/receiver/Format.h>

#include <functional>
#include <memory>
#include <optional>

namespace camclock::app {

/// Where packets come from: a live camera, or whatever stands in for one. It finds streams, asks for each
/// whether it is wanted, and feeds the wanted ones with every datagram at its arrival.
///
/// One owning thread; datagrams are fed on threads of the source's own.
class PacketSource {
public:
    /// Asked once for each stream that the source offers; null: not wanted.
    using Taker = std::function<std::shared_ptr<StreamFeed>(const receiver::Format&)>;

    virtual ~PacketSource() = default;

    /// Begins and returns at once; what goes wrong is told by `Poll`.
    virtual void Start() = 0;

    /// Why the source has ended, if it has. Does not wait.
    virtual std::optional<Failure> Poll() = 0;

    /// How its packets come: "udp", "tcp"; empty while that is not known.
    virtual const char* Road() const = 0;

    /// No stream is fed any more once it returns. What takes longer, such as leaving a dead camera, goes on
    /// elsewhere.
    virtual void Close() = 0;
};

}  // namespace camclock::app
