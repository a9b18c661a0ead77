#include "Check.h"
#include "Measure.h"
#include "plain/PlainProbe.h"
#include "probe/TimeProbe.h"

#include <camclock/Utilities.h>

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <string>

namespace camclock::bench {
namespace {

constexpr int kRequests = 5;
constexpr int kTimeOut_ms = 300;
constexpr int kIterations = 500;

const char* const kPeer = "198.18.77.2";  // RFC 2544 sets 198.18.0.0/15 aside for benchmarks

/// A network namespace with this process's number in its name, and a veth pair into it. Its kernel answers
/// ICMP timestamp requests. Gone with the object.
class Peer {
public:
    Peer()
        : name_("ccb" + std::to_string(getpid())) {
        if (geteuid() != 0)
            return;
        isThere_ = Run("ip netns add " + name_) &&
                   Run("ip link add " + name_ + "a type veth peer name " + name_ + "b netns " + name_) &&
                   Run("ip address add 198.18.77.1/30 dev " + name_ + "a") &&
                   Run("ip link set " + name_ + "a up") &&
                   Run("ip -n " + name_ + " address add " + kPeer + "/30 dev " + name_ + "b") &&
                   Run("ip -n " + name_ + " link set " + name_ + "b up");
    }
    ~Peer() {
        if (geteuid() == 0)
            Run("ip netns delete " + name_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool IsThere() const { return isThere_; }

private:
    static bool Run(const std::string& command) {
        return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
    }

    std::string name_;
    bool isThere_ = false;
};

/// One for all benches, made by the first of them: a namespace's interfaces outlive it by a moment.
const Peer& ThePeer() {
    static const Peer peer;
    return peer;
}

constexpr const char* kNoPeer = "needs root, raw sockets and network namespaces (iproute2)";

/// False, with the bench marked as skipped, where there is no peer.
bool Ready(benchmark::State& state) {
    Utilities::getInstance().AnchorToSystemClock();
    if (ThePeer().IsThere() && PlainProbe(kPeer, kRequests, kTimeOut_ms).uncertainty >= 0.0)
        return true;
    state.SkipWithError(kNoPeer);
    return false;
}

void ProbeFive(benchmark::State& state) {
    if (!Ready(state))
        return;
    TimeProbe probe("bench: ");
    Measure(state, [&] { benchmark::DoNotOptimize(probe.Probe(kPeer, kRequests, kTimeOut_ms, 0)); });
}
BENCHMARK(ProbeFive)->Name("probe_5_requests/camclock")->Iterations(kIterations)->UseRealTime();

void PlainProbeFive(benchmark::State& state) {
    if (!Ready(state))
        return;
    Measure(state, [&] { benchmark::DoNotOptimize(PlainProbe(kPeer, kRequests, kTimeOut_ms)); });
}
BENCHMARK(PlainProbeFive)->Name("probe_5_requests/plain")->Iterations(kIterations)->UseRealTime();

/// The program of the trade, a process of its own with requests of its own number.
void Clockdiff(benchmark::State& state) {
    if (!Ready(state))
        return;
    const std::string command = std::string("clockdiff ") + kPeer + " >/dev/null 2>&1";
    if (std::system("command -v clockdiff >/dev/null") != 0) {
        state.SkipWithError("clockdiff is not installed");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(std::system(command.c_str()));
}
BENCHMARK(Clockdiff)->Name("probe_5_requests/clockdiff")->Iterations(1)->UseRealTime();

/// The peer shares this machine's clock, so both have to find a difference of next to nothing.
std::string ProbesAgree() {
    Utilities::getInstance().AnchorToSystemClock();
    const ProbeResult plain =
        ThePeer().IsThere() ? PlainProbe(kPeer, kRequests, kTimeOut_ms) : ProbeResult{0.0, -1.0};
    if (plain.uncertainty < 0.0)
        return {};  // no peer to ask: the benches say so
    TimeProbe probe("bench: ");
    const ProbeResult ours = probe.Probe(kPeer, kRequests, kTimeOut_ms, 0);
    // Two clocks that count whole milliseconds, read at different instants.
    const double bound = 2.0 + ours.uncertainty + plain.uncertainty;
    const bool same = ours.uncertainty >= 0.0 && std::fabs(ours.difference - plain.difference) <= bound;
    return same ? "" : std::to_string(ours.difference) + " ms against " + std::to_string(plain.difference);
}
const RegisterCheck probesAgree("probe", ProbesAgree);

}  // namespace
}  // namespace camclock::bench
