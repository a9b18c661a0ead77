#include <camclock/TimeFilter.h>

#include "logging/AsynchronousLog.h"
#include "logging/Categories.h"
#include "logging/DirectMessage.h"
#include "logging/Log4CppWrap.h"
#include "logging/Text.h"
#include "timing/TimeFilterState.h"

#include <camclock/TimeFilterInstance.h>

#include <utility>

namespace camclock {
namespace {

using Callable = std::function<void()>;

std::shared_ptr<Callable> Keep(Callable callable) {
    return callable ? std::make_shared<Callable>(std::move(callable)) : nullptr;
}

}  // namespace

TimeFilter::TimeFilter(std::string logPrefix)
    : state_(std::make_unique<State>())
    , log_(std::make_unique<AsynchronousLog>(new Log4CppWrap(categories::TimeFilter())))
    , logPrefix_(std::move(logPrefix)) {
    _LogInfo("TimeFilter::TimeFilter");
}

TimeFilter::TimeFilter()
    : TimeFilter(std::string()) {}

TimeFilter::~TimeFilter() {
    _LogInfo("TimeFilter::~TimeFilter");
    CloseTimeProbing();
}

std::shared_ptr<TimeFilterInstance> TimeFilter::CreateNewTimeFilter() {
    _LogInfo("TimeFilter::CreateNewTimeFilter");
    return std::shared_ptr<TimeFilterInstance>(new TimeFilterInstance(*this));
}

void TimeFilter::SetLogPrefix(std::string logPrefix) {
    logPrefix_ = std::move(logPrefix);
}

std::string TimeFilter::GetLogPrefix() const {
    return logPrefix_;
}

std::chrono::milliseconds TimeFilter::GetD() const {
    return std::chrono::milliseconds(D_.load());
}

std::chrono::microseconds TimeFilter::GetD_uncert() const {
    return std::chrono::microseconds(D_uncert_.load());
}

void TimeFilter::SetD(std::chrono::milliseconds D) {
    D_ = D.count();
}

bool TimeFilter::DIsLocked() {
    return dLocked_ || !usingProbe_;
}

bool TimeFilter::IsUsingProbe() {
    return usingProbe_;
}

void TimeFilter::CheckPollDifference(std::chrono::milliseconds expected) {
    if (usingProbe_) {
        if (expectedD_.exchange(expected.count()) == State::kNoExpectedD)
            state_->probeSleeper->WakeAt(Sleeper::kNow);
        return;
    }
    std::uint32_t none = 0;
    if (probeFailures_.compare_exchange_strong(none, 1)) {  // so that of several threads one gives notice
        log_->Post([expected_ms = expected.count()](std::stringstream& out) {
            Print(out, "Time probe has not been created.",
                  " Differnece estimate falls back to expected value of: ", expected_ms, "[ms]");
        });
    }
    D_ = expected.count();
}

void TimeFilter::SetPacketTimeOut(std::chrono::milliseconds timeOut) {
    packetTimeOut_ms_ = timeOut.count();
}

std::chrono::milliseconds TimeFilter::GetPacketTimeOut() const {
    return std::chrono::milliseconds(packetTimeOut_ms_.load());
}

void TimeFilter::SetRtcpTimeOut(std::chrono::milliseconds timeOut) {
    rtcpTimeOut_ms_ = timeOut.count();
}

std::chrono::milliseconds TimeFilter::GetRtcpTimeOut() const {
    return std::chrono::milliseconds(rtcpTimeOut_ms_.load());
}

void TimeFilter::SetSyncShift(std::chrono::milliseconds syncShift) {
    syncShift_ms_ = syncShift.count();
}

std::chrono::milliseconds TimeFilter::GetSyncShift() const {
    return std::chrono::milliseconds(syncShift_ms_.load());
}

void TimeFilter::RequireRTCP(bool required) {
    requireRtcp_ = required;
}

bool TimeFilter::RequireRTCP() const {
    return requireRtcp_;
}

void TimeFilter::SetStablePtst0(TimePoint t0, bool rtcpSync) {
    {
        const std::lock_guard<std::mutex> guard(state_->stablePtsT0Mutex);
        if (!stablePtsT0Locked_) {
            if (!rtcpSync)
                stablePtsT0NoRtcp_ = t0;
            stablePtsT0_ = t0;
            stablePtsT0Locked_ = rtcpSync;
            log_->Post([t0, rtcpSync](std::stringstream& out) {
                Print(out, "New stablePts T0 set: ", t0, " RTCP sync: ", rtcpSync);
            });
            return;
        }
    }
    // Without the lock: the category's appenders are the application's.
    _LogInfo("Not able to update stable pts t0, it has been set for this session");
}

TimePoint TimeFilter::GetStablePtsT0(bool rtcpSync) const {
    return rtcpSync ? stablePtsT0_ : stablePtsT0NoRtcp_;
}

bool TimeFilter::StablePtsT0Locked() const {
    return stablePtsT0Locked_;
}

void TimeFilter::AssignShutdownHandler(std::function<void()> handler) {
    shutdownHandler_ = Keep(std::move(handler));
}

void TimeFilter::ShutDown() {
    const std::shared_ptr<Callable> handler = shutdownHandler_;  // it may replace itself
    if (!handler) {
        _LogInfo("Shutdown called with no handler assigned");
        return;
    }
    _LogInfo("Calling shutdown");
    (*handler)();
}

void TimeFilter::SetTestStuff(std::function<void()> testFunc) {
    testFunc_ = Keep(std::move(testFunc));
}

void TimeFilter::TestStuff() {
    const std::shared_ptr<Callable> testFunc = testFunc_;
    if (!testFunc)
        return;
    _LogInfo("Calling  testfunc");
    (*testFunc)();
}

bool TimeFilter::_InfoEnabled() {
    return InfoEnabled(categories::TimeFilter());
}

void TimeFilter::_LogInfo(const std::string& message) const {
    if (_InfoEnabled())
        WriteInfo(categories::TimeFilter(), logPrefix_ + message);
}

}  // namespace camclock
