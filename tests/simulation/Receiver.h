#pragma once

#include "sim/SimulatedCamera.h"
#include "support/ManualCounter.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace camclock::test {

using namespace camclock::sim;  // NOLINT(google-build-using-namespace): the tests are about nothing else

inline constexpr double ToMilliseconds(Ticks time) {
    return static_cast<double>(time.count()) / 10'000.0;
}

/// One call of `UpdateTiming`, its result, and the truth.
struct Call {
    TimePoint capture_host;  ///< the truth
    TimePoint TOR_host;
    TimePoint TOC_host;
    bool trusted = false;
    std::int64_t D_ms = 0;  ///< after the call
    std::int64_t stablePts = 0;
    MediaPacket::Frametype frameType = MediaPacket::kFrameUnknown;

    /// Positive when the library places the capture too late.
    double Error_ms() const { return ToMilliseconds(TOC_host - capture_host); }
    double Latency_ms() const { return ToMilliseconds(TOR_host - capture_host); }
};

/// What the errors of many calls amount to, in milliseconds. Percentiles are of the absolute error, nearest
/// rank.
struct Errors {
    std::size_t count = 0;
    double p50 = 0.0;
    double p99 = 0.0;
    double worst = 0.0;
    double least = 0.0;     ///< signed
    double mean = 0.0;      ///< signed
    double greatest = 0.0;  ///< signed
    double trusted = 0.0;   ///< share, 0 to 1
};

inline Errors Summarise(const std::vector<Call>& calls) {
    Errors errors;
    errors.count = calls.size();
    if (calls.empty())
        return errors;
    std::vector<double> sizes;
    double sum = 0.0;
    double trusted = 0.0;
    errors.least = errors.greatest = calls.front().Error_ms();
    for (const Call& call : calls) {
        const double error = call.Error_ms();
        sizes.push_back(std::fabs(error));
        errors.least = (std::min)(errors.least, error);
        errors.greatest = (std::max)(errors.greatest, error);
        sum += error;
        trusted += call.trusted ? 1.0 : 0.0;
    }
    std::sort(sizes.begin(), sizes.end());
    const auto count = static_cast<double>(sizes.size());
    const auto rank = [&](double share) {
        return sizes[static_cast<std::size_t>(std::ceil(share * count)) - 1];
    };
    errors.p50 = rank(0.50);
    errors.p99 = rank(0.99);
    errors.worst = sizes.back();
    errors.mean = sum / count;
    errors.trusted = trusted / count;
    return errors;
}

/// Prints what was measured, so that the figures in docs/clocks.md can be had again.
inline void PrintMeasured(const std::string& what, const Errors& errors) {
    std::printf(
        "[ MEASURED ] %s: %s calls, |error| p50 %.3f p99 %.3f max %.3f ms; error %.3f to %.3f, mean %.3f "
        "ms; trusted %.1f %%\n",
        what.c_str(), std::to_string(errors.count).c_str(), errors.p50, errors.p99, errors.worst,
        errors.least, errors.greatest, errors.mean, errors.trusted * 100.0);
}

/// Hands one packet over and takes down what came of it.
inline Call Feed(TimeFilter& filter, TimeFilterInstance& stream, const SimulatedCamera::Arrival& arrival) {
    stream.UpdateTiming(arrival.packet, arrival.frameType);
    Call call;
    call.capture_host = arrival.capture_host;
    call.TOR_host = arrival.packet->TOR_host;
    call.TOC_host = stream.GetCurrentTOC_Host();
    call.trusted = stream.GetCurrentEstimationQuality() == MediaPacket::kTrustGood;
    call.D_ms = filter.GetD().count();
    call.stablePts = stream.GetCurrentStablePTS();
    call.frameType = arrival.frameType;
    return call;
}

/// The camera's other end: host's clock, one `TimeFilter`, one instance, fed through the public interface
/// alone.
class Receiver {
public:
    struct Options {
        std::chrono::milliseconds meanLatency{0};
        bool everyPacket = false;         ///< one call a packet instead of one a frame
        bool receptionByGetTime = false;  ///< TOR_host from the process clock, that is in whole milliseconds
    };

    explicit Receiver(const SimulatedCamera::Settings& settings)
        : Receiver(settings, Options{settings.network.MeanLatency()}) {}

    Receiver(const SimulatedCamera::Settings& settings, const Options& options)
        : camera_(settings)
        , options_(options)
        , counter_(settings.start)
        , now_host_(settings.start)
        , next_(camera_.Next()) {
        NewStream();
    }

    /// A new instance in place of the old one, as an application makes it when a camera comes back.
    void NewStream() {
        stream_ = filter_.CreateNewTimeFilter();
        stream_->SetStreamId("simulated ");
        stream_->SetMeanLatency(options_.meanLatency);
        stream_->DoTimeFiltering(true);
        stream_->DoEstimation(true);
        stream_->EnableTimeOutCheck(true);
        anyFrame_ = false;
    }

    SimulatedCamera& Camera() { return camera_; }
    TimeFilter& Filter() { return filter_; }
    TimeFilterInstance& Stream() { return *stream_; }

    /// Takes all that arrives until `end` (since the start, host's clock) and returns the calls.
    std::vector<Call> RunUntil(std::chrono::milliseconds end) {
        std::vector<Call> calls;
        const TimePoint end_host = camera_.GetSettings().start + end;
        for (; next_.at_host < end_host; next_ = camera_.Next())
            _Take(next_, calls);
        _PassTimeUntil(end_host);
        return calls;
    }

private:
    void _PassTimeUntil(TimePoint time_host) {
        counter_.Advance(time_host - now_host_);
        now_host_ = time_host;
    }

    void _Take(const SimulatedCamera::Arrival& arrival, std::vector<Call>& calls) {
        _PassTimeUntil(arrival.at_host);
        if (arrival.report) {
            stream_->UpdateSyncInfo(arrival.report);
            return;
        }
        const bool sameFrame = anyFrame_ && arrival.packet->RTP_ts == lastRtp_;
        anyFrame_ = true;
        lastRtp_ = arrival.packet->RTP_ts;
        if (sameFrame && !options_.everyPacket)
            return;
        if (options_.receptionByGetTime)
            arrival.packet->TOR_host = counter_.Now();
        calls.push_back(Feed(filter_, *stream_, arrival));
    }

    SimulatedCamera camera_;
    Options options_;
    ManualCounter counter_;
    TimePoint now_host_;
    SimulatedCamera::Arrival next_;
    TimeFilter filter_{"simulation: "};
    std::shared_ptr<TimeFilterInstance> stream_;
    bool anyFrame_ = false;
    std::uint32_t lastRtp_ = 0;
};

}  // namespace camclock::test
