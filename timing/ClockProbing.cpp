#include <camclock/TimeFilter.h>

#include "logging/Text.h"
#include "probe/TimeProbe.h"
#include "timing/ProbeAcceptance.h"
#include "util/Arithmetic.h"
#include "util/PathSeparator.h"
#include "util/PerfCounter.h"

#include <camclock/Utilities.h>

#include <exception>
#include <system_error>
#include <utility>

namespace camclock {
namespace {

constexpr int kRequestsPerProbing = 5;
constexpr int kRequestTimeOut_ms = 300;
constexpr std::uint32_t kFailuresBeforeTheLast = 10;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kNoExpectedD = (std::numeric_limits<std::int64_t>::min)();
constexpr std::chrono::milliseconds kCycle{10};

}  // namespace

void TimeFilter::UseICMP(std::string url, std::chrono::seconds pollInterval, std::string logPath,
                         bool createLog) {
    if (_InfoEnabled())
        _LogInfo(Text("Setting up ICMP: \n", "url: ", url, "\n",
                      "poll interval [sec]:", static_cast<double>(pollInterval.count()), "\n",
                      "log path: ", logPath, "\n", createLog ? "Creating log" : "Not creating log"));
    // A second probing thread cannot be had, and the first one still uses what would be replaced below.
    if (probeThread_.joinable())
        std::terminate();
    if (createLog) {
        probeLog_ = std::make_unique<std::ofstream>();  // closes an earlier one, which may have the same name
        if (!logPath.empty())
            logPath += kPathSeparator;
        logPath += "probelog.txt";
        _LogInfo("Creating probe log: " + logPath);
        _ProbeLog().open(logPath, std::ios::out | std::ios::trunc);
        _ProbeLog() << "Logging probed time differences: \n time now msec, diff ms, uncert ms\n";
    }
    probeUrl_ = std::move(url);
    pollInterval_s_ = pollInterval.count();
    _LogInfo("Creating time-probe");
    probe_ = std::make_unique<TimeProbe>(logPrefix_);
    usingProbe_.exchange(true);
    probing_.exchange(true);
    probeThread_ = std::thread(&TimeFilter::_RunTimeProbe, this);
}

void TimeFilter::CloseTimeProbing() {
    _LogInfo("TimeFilter::CloseTimeProbing");
    _LogInfo("Waiting for probe tasks to finish");
    probing_.exchange(false);
    if (probeThread_.joinable()) {
        // Not every platform's join notices that it would wait for itself.
        if (probeThread_.get_id() == std::this_thread::get_id())
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        probeThread_.join();
    }
    _LogInfo("Done waiting for probe tasks");
}

void TimeFilter::_RunTimeProbe() {
    _LogInfo("Starting timeprobe thread");
    while (probing_) {
        const std::int64_t now_ns = _MonotonicNow_ns();
        const std::int64_t expected_ms = expectedD_;
        if (expected_ms != kNoExpectedD && now_ns >= nextProbeAt_ns_)
            _ProbeForDifference(now_ns, expected_ms);
        std::this_thread::sleep_for(kCycle);
    }
    _LogInfo("Exiting time probe thread");
    usingProbe_.exchange(false);
    probe_.reset();
}

void TimeFilter::_ProbeForDifference(std::int64_t now_ns, std::int64_t expected_ms) {
    _LogInfo("Probing for time difference! ...");
    nextProbeAt_ns_ = WrappingAdd(now_ns, WrappingMultiply(pollInterval_s_, kNanosecondsPerSecond));
    const ProbeResult result = probe_->Probe(probeUrl_, kRequestsPerProbing, kRequestTimeOut_ms, expected_ms);
    if (probeLog_) {
        const std::int64_t now_ticks = Utilities::getInstance().GetTime().time_since_epoch().count();
        _ProbeLog() << Text(now_ticks / kTicksPerMillisecond, " , ", result.difference, " , ",
                            result.uncertainty, "\n");
    }
    if (IsAcceptable(result)) {
        const std::int64_t D_ms = TruncateToInt64(result.difference);
        D_.exchange(D_ms);
        D_uncert_.exchange(TruncateToInt64(result.uncertainty * 1000.0));
        _LogInfo("Using results of a successful ICMP probing");
        if (_InfoEnabled())
            _LogInfo(Text(D_ms, " [ms] will be added to remote time to get local time.",
                          " Uncertainty bounds: ", result.uncertainty, "[ms]"));
        probeFailures_.exchange(0);
        dLocked_.exchange(true);
        return;
    }
    // Deliberate: the same words when there was no reply at all
    // (ClockProbing.AFailureFallsBackToTheExpectedValue).
    _LogInfo("Time probe estimation discarded with uncertainty larger than 30ms");
    if (_InfoEnabled())
        _LogInfo(Text("Differnece estimate falls back to expected value of:", expected_ms, "[ms]"));
    D_.exchange(expected_ms);
    nextProbeAt_ns_ = now_ns;
    if (probeFailures_ == kFailuresBeforeTheLast) {
        _LogInfo("Ten failed time probings in a row, use of ICMP timeprobe discontinued !");
        probing_.exchange(false);
    }
    ++probeFailures_;
}

std::ofstream& TimeFilter::_ProbeLog() {
    return *probeLog_;
}

/// The counter of the process clock, which no step of the system clock moves, as nanoseconds.
std::int64_t TimeFilter::_MonotonicNow_ns() {
    const std::int64_t count = PerfCounter::Read();
    const std::int64_t frequency = PerfCounter::Frequency();
    return WrappingAdd(WrappingMultiply(count / frequency, kNanosecondsPerSecond),
                       WrappingMultiply(count % frequency, kNanosecondsPerSecond) / frequency);
}

}  // namespace camclock
