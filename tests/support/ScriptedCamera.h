#pragma once

#include "support/IcmpReplies.h"
#include "support/NetworkNamespaces.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace camclock::test {

/// A camera on the far side of `TwoNamespaces` (made with `Camera::kNobody`), which answers ICMP Timestamp
/// messages as its script says. It works on whole Ethernet frames, so that it can say what no kernel would.
class ScriptedCamera {
public:
    /// Runs on the camera's thread for every Timestamp message; what it returns is sent, in order. `request`
    /// is the ICMP message without its IPv4 header. Replies are IPv4 datagrams.
    using Script = std::function<std::vector<Bytes>(const Bytes& request)>;

    ScriptedCamera(const TwoNamespaces& network, Script script);
    ~ScriptedCamera();

    ScriptedCamera(const ScriptedCamera&) = delete;
    ScriptedCamera& operator=(const ScriptedCamera&) = delete;

    /// Every Timestamp message that arrived, IPv4 header included.
    std::vector<Bytes> Received() const;

private:
    void _Run();
    void _Answer(const Bytes& datagram);

    Script script_;
    int socket_ = -1;
    int stop_ = -1;  // an event: readable when the thread is to end
    mutable std::mutex mutex_;
    std::vector<Bytes> received_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace camclock::test
