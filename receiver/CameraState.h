#pragma once

#include "receiver/Graveyard.h"
#include "receiver/PtsBoard.h"

#include <camclock/Receiver.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace camclock::receiver {

/// What the streams of a camera share. It lives as long as the camera or any of its streams.
///
/// Any thread; locks here are leaves: nothing is called from within them but the application's handler of
/// events.
class CameraState {
public:
    CameraState(std::string cameraName, Settings cameraSettings, std::function<void(const Event&)> onEvent);

    CameraState(const CameraState&) = delete;
    CameraState& operator=(const CameraState&) = delete;

    const std::string name;
    const Settings settings;  // bounded: latencies to a day, the expected difference to two centuries
    PtsBoard pts;
    Graveyard graveyard;

    void SetMeanLatency(std::chrono::milliseconds latency);
    void SetLeastLatency(std::chrono::microseconds latency);
    std::chrono::milliseconds MeanLatency() const { return std::chrono::milliseconds(meanLatency_ms_); }
    std::chrono::microseconds LeastLatency() const;

    /// Tells the application. `text`: what happened, without names.
    void Raise(Event::Kind kind, const std::string& stream, const std::string& text, Ticks size = {});

    /// The camera itself is gone: nobody hears events any more.
    void Close();

    // ---- the clock difference, where it is measured: one stream measures for all
    // -----------------------------------

    /// True for the stream that shall measure; it is the only one from now on. `stream` is only compared.
    bool BeginMeasuring(const void* stream);
    void EndMeasuring(const void* stream);
    void WriteMeasured(const void* stream, std::optional<std::chrono::milliseconds> D,
                       std::chrono::microseconds uncertainty);

    struct Measured {
        std::chrono::milliseconds D{0};
        std::chrono::microseconds uncertainty{0};
    };
    std::optional<Measured> MeasuredD() const;

    /// The least round trip that measuring has shown; 100 ms before that.
    std::chrono::microseconds LeastRoundTrip() const { return std::chrono::microseconds(leastRoundTrip_us_); }

private:
    std::atomic<std::int64_t> meanLatency_ms_;
    std::atomic<std::int64_t> leastLatency_us_;
    std::atomic<bool> leastIsSet_;

    std::mutex eventMutex_;  // guards onEvent_, and calls it
    std::function<void(const Event&)> onEvent_;

    mutable std::mutex measuredMutex_;  // guards the three below
    const void* measurer_ = nullptr;
    std::optional<Measured> measured_;
    bool measuring_ = false;
    std::atomic<bool> anyMeasured_{false};  // lets frames pass by the lock where nothing is measured
    std::atomic<std::int64_t> leastRoundTrip_us_{100'000};
};

/// `text` with control characters written as \xNN: it is shown on terminals.
std::string WithoutControls(const std::string& text);

}  // namespace camclock::receiver
