#include <camclock/TimeFilterInstance.h>

#include "logging/Text.h"
#include "util/Arithmetic.h"

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include <limits>

namespace camclock {
namespace {

/// Is an age in ticks past a time-out? A time-out beyond the reach of ticks,
/// some 29,000 years, is never past.
bool IsPast(std::int64_t age_ticks, std::chrono::milliseconds timeOut) {
    constexpr std::int64_t kLongest_ms = (std::numeric_limits<std::int64_t>::max)() / kTicksPerMillisecond;
    if (timeOut.count() > kLongest_ms)
        return false;
    if (timeOut.count() < -kLongest_ms)
        return true;
    return age_ticks > timeOut.count() * kTicksPerMillisecond;
}

}  // namespace

bool TimeFilterInstance::PacketArrivalIsOk() {
    if (!timeOutCheck_)
        return true;
    const TimePoint now = Utilities::getInstance().GetTime();
    if (TOR_host_ == kNotYetSet) {  // supervision starts with the first check
        TOR_host_ = now;
        lastRtcpArrival_ = now;
    }

    bool arrivalIsOk = true;
    const std::int64_t age = TicksBetween(TOR_host_, now);
    if (IsPast(age, timeFilter_.GetPacketTimeOut())) {
        arrivalIsOk = false;
        if (_InfoEnabled())
            _LogInfo(Text("Data packet timeout detected, ", age / kTicksPerMillisecond,
                          " [ms] since last packet"));
    }
    if (!timeFilter_.RequireRTCP())
        return arrivalIsOk;

    // No report yet is not a late report: the distance from "not yet set" wraps around to a negative age
    // (ArrivalSupervision.NoReportYetIsNotALateReport).
    const std::int64_t rtcpAge = TicksBetween(lastRtcpArrival_, now);
    if (IsPast(rtcpAge, timeFilter_.GetRtcpTimeOut())) {
        arrivalIsOk = false;
        if (_InfoEnabled())
            _LogInfo(Text("RTCP packet timeout detected, ", rtcpAge / kTicksPerMillisecond,
                          " [ms] since last packet"));
    }
    return arrivalIsOk;
}

bool TimeFilterInstance::StablePtsIsOk() {
    return !timeFilter_.RequireRTCP() || _HasRtcpSync();
}

}  // namespace camclock
