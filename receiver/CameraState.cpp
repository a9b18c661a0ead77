#include "receiver/CameraState.h"

#include "receiver/TimeArithmetic.h"

#include <algorithm>
#include <utility>

namespace camclock::receiver {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// No picture is on its way for longer, nor does any arrive so long before it was taken.
constexpr std::chrono::hours kLongestLatency{24};
/// Longer than an era of NTP (RFC 5905, 6), by which clocks may differ.
constexpr std::chrono::hours kGreatestDifference{24 * 365 * 200};

template <class Duration>
Duration Bounded(Duration duration, Duration most) {
    return std::clamp(duration, -most, most);
}

/// Settings with which no sum of times leaves its range.
Settings Bounded(Settings settings) {
    settings.meanLatency = Bounded<milliseconds>(settings.meanLatency, kLongestLatency);
    if (settings.leastLatency)
        settings.leastLatency = Bounded<microseconds>(*settings.leastLatency, kLongestLatency);
    if (settings.cameraDelay) {
        settings.cameraDelay = {Bounded<microseconds>(settings.cameraDelay->first, kLongestLatency),
                                Bounded<microseconds>(settings.cameraDelay->second, kLongestLatency)};
    }
    if (settings.expectedDifference)
        settings.expectedDifference =
            Bounded<milliseconds>(*settings.expectedDifference, kGreatestDifference);
    return settings;
}

}  // namespace

CameraState::CameraState(std::string cameraName, Settings cameraSettings,
                         std::function<void(const Event&)> onEvent)
    : name(std::move(cameraName))
    , settings(Bounded(std::move(cameraSettings)))
    , meanLatency_ms_(settings.meanLatency.count())
    , leastLatency_us_(settings.leastLatency ? settings.leastLatency->count() : 0)
    , leastIsSet_(settings.leastLatency.has_value())
    , onEvent_(std::move(onEvent)) {}

void CameraState::SetMeanLatency(milliseconds latency) {
    meanLatency_ms_ = Bounded<milliseconds>(latency, kLongestLatency).count();
}

void CameraState::SetLeastLatency(microseconds latency) {
    leastLatency_us_ = Bounded<microseconds>(latency, kLongestLatency).count();
    leastIsSet_ = true;
}

microseconds CameraState::LeastLatency() const {
    return leastIsSet_ ? microseconds(leastLatency_us_) : microseconds(MeanLatency());
}

void CameraState::Raise(Event::Kind kind, const std::string& stream, const std::string& text, Ticks size) {
    const std::lock_guard<std::mutex> guard(eventMutex_);
    if (!onEvent_)
        return;
    Event event;
    event.kind = kind;
    event.camera = name;
    event.stream = stream;
    event.text = WithoutControls(stream.empty() ? name + ": " + text : name + ", " + stream + ": " + text);
    event.size = std::chrono::duration_cast<std::chrono::milliseconds>(size);
    onEvent_(event);
}

void CameraState::Close() {
    const std::lock_guard<std::mutex> guard(eventMutex_);
    onEvent_ = nullptr;
}

bool CameraState::BeginMeasuring(const void* stream) {
    if (settings.icmpHost.empty())
        return false;
    const std::lock_guard<std::mutex> guard(measuredMutex_);
    if (measuring_ && measurer_ != stream)
        return false;
    measuring_ = true;
    measurer_ = stream;
    return true;
}

void CameraState::EndMeasuring(const void* stream) {
    const std::lock_guard<std::mutex> guard(measuredMutex_);
    if (measurer_ != stream)
        return;
    measuring_ = false;
    measurer_ = nullptr;
    measured_.reset();
    anyMeasured_ = false;
}

void CameraState::WriteMeasured(const void* stream, std::optional<std::chrono::milliseconds> D,
                                std::chrono::microseconds uncertainty) {
    const std::lock_guard<std::mutex> guard(measuredMutex_);
    if (measurer_ != stream)
        return;
    measured_.reset();
    if (D) {
        measured_ = Measured{*D, uncertainty};
        leastRoundTrip_us_ = (std::min)(leastRoundTrip_us_.load(), 2 * uncertainty.count());
    }
    anyMeasured_ = measured_.has_value();
}

std::optional<CameraState::Measured> CameraState::MeasuredD() const {
    if (!anyMeasured_)
        return std::nullopt;
    const std::lock_guard<std::mutex> guard(measuredMutex_);
    return measured_;
}

std::string WithoutControls(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string shown;
    shown.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            shown += c;
            continue;
        }
        shown += "\\x";
        shown += kDigits[byte >> 4U];
        shown += kDigits[byte & 0xFU];
    }
    return shown;
}

}  // namespace camclock::receiver
