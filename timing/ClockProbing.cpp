#include <camclock/TimeFilter.h>

#include "logging/Text.h"
#include "timing/ProbeAcceptance.h"
#include "timing/TimeFilterState.h"
#include "util/Arithmetic.h"
#include "util/PathSeparator.h"

#include <camclock/Utilities.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

namespace camclock {
namespace {

// A silent camera takes 5 x 300 ms: what closing the probing may have to wait for.
constexpr int kRequestsPerProbing = 5;
constexpr int kRequestTimeOut_ms = 300;  // five times the round trip from which on a result is refused
constexpr std::uint32_t kFailuresBeforeTheLast = 10;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
/// Behind a probing, so that failures do not flood the network.
constexpr std::chrono::milliseconds kPause{10};

/// `now_ns` plus an interval; what lies beyond 64 bits, 292 years, is their end: never.
std::int64_t After(std::int64_t now_ns, std::int64_t interval_s) {
    constexpr std::int64_t kLongest_s = (std::numeric_limits<std::int64_t>::max)() / kNanosecondsPerSecond;
    const std::int64_t interval_ns = std::clamp(interval_s, -kLongest_s, kLongest_s) * kNanosecondsPerSecond;
    if (interval_ns > 0 && now_ns > Sleeper::kNever - interval_ns)
        return Sleeper::kNever;
    if (interval_ns < 0 && now_ns < Sleeper::kNow - interval_ns)
        return Sleeper::kNow;
    return now_ns + interval_ns;
}

}  // namespace

void TimeFilter::UseICMP(std::string url, std::chrono::seconds pollInterval, std::string logPath,
                         bool createLog) {
    if (_InfoEnabled())
        _LogInfo(Text("Setting up ICMP: \n", "url: ", url, "\n",
                      "poll interval [sec]:", static_cast<double>(pollInterval.count()), "\n",
                      "log path: ", logPath, "\n", createLog ? "Creating log" : "Not creating log"));
    State& state = *state_;
    const bool isSecond = state.probeThread.joinable();  // whose thread uses what a first call may replace
    std::unique_ptr<std::ofstream> probeLog;
    if (createLog) {
        if (!isSecond)
            state.probeLog.reset();  // it may have the same name
        if (!logPath.empty())
            logPath += kPathSeparator;
        logPath += "probelog.txt";
        _LogInfo("Creating probe log: " + logPath);
        probeLog = std::make_unique<std::ofstream>(logPath, std::ios::out | std::ios::trunc);
        *probeLog << "Logging probed time differences: \n time now msec, diff ms, uncert ms\n";
    }
    _LogInfo("Creating time-probe");
    auto probe = std::make_unique<TimeProbe>(logPrefix_);
    // Deliberate: a second call between UseICMP and CloseTimeProbing has had all its messages when it ends
    // the process, as the start of a thread in the place of a running one would
    // (ClockProbingDeathTest.ASecondStartEndsTheProcessBehindItsMessages).
    if (isSecond)
        std::terminate();
    if (createLog)
        state.probeLog = std::move(probeLog);
    state.probeUrl = std::move(url);
    state.pollInterval_s = pollInterval.count();
    state.probe = std::move(probe);
    if (!state.probeSleeper)
        state.probeSleeper.emplace();
    usingProbe_ = true;
    probing_ = true;
    state.probeThread = std::thread(&TimeFilter::_RunTimeProbe, this);
}

void TimeFilter::CloseTimeProbing() {
    _LogInfo("TimeFilter::CloseTimeProbing");
    _LogInfo("Waiting for probe tasks to finish");
    probing_ = false;
    if (std::thread& thread = state_->probeThread; thread.joinable()) {
        // Not every platform's join notices that it would wait for itself.
        if (thread.get_id() == std::this_thread::get_id())
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        state_->probeSleeper->Rouse();
        ProcessWide<ProbeTurn>()->LookAgain();
        thread.join();
    }
    _LogInfo("Done waiting for probe tasks");
}

void TimeFilter::_RunTimeProbe() {
    _LogInfo("Starting timeprobe thread");
    State& state = *state_;
    while (probing_) {
        state.probeSleeper->WakeAt(Sleeper::kNever);  // before the expected difference is read
        const std::int64_t expected_ms = expectedD_;
        const std::int64_t now_ns = MonotonicNow_ns();
        if (expected_ms == State::kNoExpectedD) {
            state.probeSleeper->Sleep();
        } else if (now_ns < state.nextProbeAt_ns) {
            state.probeSleeper->WakeAt(state.nextProbeAt_ns);
            state.probeSleeper->Sleep();
        } else {
            _ProbeForDifference(now_ns, expected_ms);
            std::this_thread::sleep_for(kPause);
        }
    }
    _LogInfo("Exiting time probe thread");
    usingProbe_ = false;
    state.probe.reset();
}

void TimeFilter::_ProbeForDifference(std::int64_t now_ns, std::int64_t expected_ms) {
    _LogInfo("Probing for time difference! ...");
    State& state = *state_;
    state.nextProbeAt_ns = After(now_ns, state.pollInterval_s);
    const std::optional<ProbeResult> ended = state.probe->ProbeWhile(
        probing_, state.probeUrl, kRequestsPerProbing, kRequestTimeOut_ms, expected_ms);
    if (!ended) {  // closed while other cameras had their turn: nothing was measured, nothing has failed
        state.nextProbeAt_ns = now_ns;
        return;
    }
    const ProbeResult& result = *ended;
    if (state.probeLog) {
        const std::int64_t now_ticks = Utilities::getInstance().GetTime().time_since_epoch().count();
        _ProbeLog() << Text(now_ticks / kTicksPerMillisecond, " , ", result.difference, " , ",
                            result.uncertainty, "\n");
    }
    if (IsAcceptable(result)) {
        const std::int64_t D_ms = TruncateToInt64(result.difference);
        D_ = D_ms;
        D_uncert_ = TruncateToInt64(result.uncertainty * 1000.0);
        _LogInfo("Using results of a successful ICMP probing");
        if (_InfoEnabled())
            _LogInfo(Text(D_ms, " [ms] will be added to remote time to get local time.",
                          " Uncertainty bounds: ", result.uncertainty, "[ms]"));
        probeFailures_ = 0;
        dLocked_ = true;
        return;
    }
    // Deliberate: the same words when there was no reply at all
    // (ClockProbing.AFailureFallsBackToTheExpectedValue).
    _LogInfo("Time probe estimation discarded with uncertainty larger than 30ms");
    if (_InfoEnabled())
        _LogInfo(Text("Differnece estimate falls back to expected value of:", expected_ms, "[ms]"));
    D_ = expected_ms;
    state.nextProbeAt_ns = now_ns;
    if (probeFailures_ == kFailuresBeforeTheLast) {
        _LogInfo("Ten failed time probings in a row, use of ICMP timeprobe discontinued !");
        probing_ = false;
    }
    ++probeFailures_;
}

std::ofstream& TimeFilter::_ProbeLog() {
    return *state_->probeLog;
}

}  // namespace camclock
