#pragma once

#include <camclock/MediaPacket.h>
#include <camclock/SyncPoint.h>
#include <camclock/TimePoint.h>
#include <camclock/TimingData.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <queue>
#include <string>
#include <utility>
#include <vector>

namespace camclock::sim {

/// Random numbers that are the same on every platform and with every standard library: SplitMix64, and
/// samples made of whole numbers and single multiplications, which IEEE 754 rounds one way only.
class Random {
public:
    explicit Random(std::uint64_t seed)
        : state_(seed) {}

    std::uint64_t Next() {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31);
    }

    /// A whole number from 0 to `bound` - 1.
    std::uint64_t Below(std::uint64_t bound) { return Next() % bound; }

    bool Chance(double probability) {
        constexpr double kTwoTo53 = 9007199254740992.0;
        return static_cast<double>(Next() >> 11) < probability * kTwoTo53;
    }

    /// Exponentially distributed, by inversion: minus the logarithm of a uniform number, times the mean.
    Ticks Exponential(Ticks mean) {
        constexpr double kLogOf2PerUnit = 0.69314718055994531 / 4294967296.0;
        const double units = static_cast<double>(_MinusLog2(Next() | 1)) * kLogOf2PerUnit;
        return Ticks(static_cast<std::int64_t>(units * static_cast<double>(mean.count())));
    }

private:
    /// -log2(value / 2^64) in units of 2^-32, digit after digit by squaring; `value` is not 0.
    static std::uint64_t _MinusLog2(std::uint64_t value) {
        std::uint64_t whole = 1;
        for (; (value >> 63) == 0; value <<= 1)
            ++whole;
        std::uint64_t mantissa = value >> 32;  // 1.31 bits, from 1 up to 2
        std::uint64_t fraction = 0;
        for (int digit = 0; digit < 32; ++digit) {
            const std::uint64_t square = mantissa * mantissa;  // 2.62 bits, from 1 up to 4
            const std::uint64_t isTwoOrMore = square >> 63;
            fraction = fraction << 1 | isTwoOrMore;
            mantissa = square >> (31 + isTwoOrMore);
        }
        return (whole << 32) - fraction;
    }

    std::uint64_t state_;
};

/// How long a frame is under way: a base, an exponential queueing time, and now and then a spike on top.
struct NetworkModel {
    const char* name = "no network";
    Ticks base{};
    Ticks queueing{};          ///< mean of the exponential part
    double spikeChance = 0.0;  ///< of a frame
    Ticks spike{};

    Ticks Draw(Random& random) const {
        Ticks latency = base;
        if (queueing.count() > 0)
            latency += random.Exponential(queueing);
        if (random.Chance(spikeChance))
            latency += spike;
        return latency;
    }

    /// The share of frames that take no longer than `latency_ms`.
    double ShareWithin(double latency_ms) const {
        const auto plain = [this](double rest_ms) {
            const double mean_ms = static_cast<double>(queueing.count()) / 10'000.0;
            return rest_ms < 0.0 ? 0.0 : mean_ms > 0.0 ? 1.0 - std::exp(-rest_ms / mean_ms) : 1.0;
        };
        const double rest_ms = latency_ms - static_cast<double>(base.count()) / 10'000.0;
        const double spike_ms = static_cast<double>(spike.count()) / 10'000.0;
        return (1.0 - spikeChance) * plain(rest_ms) + spikeChance * plain(rest_ms - spike_ms);
    }

    /// The true median, in milliseconds.
    double Median_ms() const {
        double low = 0.0;
        double high = 1'000.0;
        for (int step = 0; step < 60; ++step) {
            const double middle = (low + high) / 2.0;
            (ShareWithin(middle) < 0.5 ? low : high) = middle;
        }
        return high;
    }

    /// The true median as `SetMeanLatency` takes it: rounded to the nearest whole millisecond.
    std::chrono::milliseconds MeanLatency() const {
        return std::chrono::milliseconds(std::llround(Median_ms()));
    }
};

inline constexpr NetworkModel kLan{"LAN", Ticks(3'000), Ticks(2'000), 0.005, Ticks(50'000)};
inline constexpr NetworkModel kBusyLan{"busy LAN", Ticks(5'000), Ticks(20'000), 0.01, Ticks(200'000)};
inline constexpr NetworkModel kWifi{"Wi-Fi", Ticks(20'000), Ticks(50'000), 0.03, Ticks(400'000)};
inline constexpr NetworkModel kWan{"WAN", Ticks(300'000), Ticks(80'000), 0.02, Ticks(600'000)};

/// In which order frames reach the application.
enum class Delivery {
    kInOrder,           ///< the path is a queue: whatever was sent later arrives later
    kSortedByReceiver,  ///< frames overtake each other; the receiver hands them out as they were sent
    kAsTheyArrive,      ///< frames overtake each other, and the application sees it
};

/// A camera with a clock of its own, behind a network. It makes packets and sender reports as a receiver
/// would get them and knows the truth: the host's time at which each frame was captured.
///
/// A pure function of its settings, the seed included. It has no end: ask it for arrivals as long as you
/// like.
///
///     SimulatedCamera camera(settings);
///     const SimulatedCamera::Arrival next = camera.Next();
class SimulatedCamera {
public:
    /// From `after` on (since the start, host's clock) the camera's clock is `by` further ahead. The RTP time
    /// does not step: the next sender report gives it away.
    struct ClockStep {
        Ticks after{};
        Ticks by{};
    };

    /// At `after` (since the start, host's clock) the camera dies for `outage`. It comes back with another
    /// SSRC, RTP time and sequence number and with a clock that is `newOffset` ahead of the host's.
    struct Reboot {
        Ticks after{};
        Ticks outage{};
        Ticks newOffset{};
    };

    struct Settings {
        std::uint64_t seed = 1;
        TimePoint start = TimePoint(Ticks(17'000'000'000'000'000));  ///< of the first frame, host's clock

        Ticks offset{};          ///< the camera's clock less the host's, at the start
        double drift_ppm = 0.0;  ///< the camera's clock gains so much on the host's
        double rtpDrift_ppm =
            0.0;  ///< the RTP clock gains so much on the camera's clock, from which reports tell
        std::vector<ClockStep> steps;
        std::vector<Reboot> reboots;  ///< in order of time

        std::uint32_t RTPFreq = 90'000;
        Ticks framePeriod{400'000};  ///< 25 frames a second
        std::uint32_t bFrames = 0;   ///< between two reference frames; sent right after the later one
        std::uint32_t keyFrameEvery = 25;
        std::uint32_t packetsOfKeyFrame = 1;
        std::uint32_t packetsOfFrame = 1;
        Ticks packetSpacing{};  ///< from packet to packet of one frame

        Ticks firstReport{};               ///< after the start, or after a reboot
        Ticks reportInterval{50'000'000};  ///< 0: no reports at all

        NetworkModel network;
        Delivery delivery = Delivery::kInOrder;
        double lossChance = 0.0;  ///< of a packet; reports are not lost
        Ticks stallEvery{};   ///< 0: never. Else the network stands still at the end of every such period ...
        Ticks stallLength{};  ///< ... and lets go of all that came meanwhile at once
    };

    /// What reaches the receiver: a packet or a sender report.
    struct Arrival {
        TimePoint at_host;  ///< when the application gets it
        std::shared_ptr<SyncPoint> report;
        std::shared_ptr<TimingData> packet;
        MediaPacket::Frametype frameType = MediaPacket::kFrameUnknown;
        TimePoint capture_host;  ///< the truth
        std::uint64_t frame = 0;
    };

    explicit SimulatedCamera(Settings settings)
        : settings_(std::move(settings))
        , random_(settings_.seed)
        , offset_(settings_.offset) {
        _StartSession(Ticks{});
    }

    const Settings& GetSettings() const { return settings_; }

    /// For the failure message of a test.
    std::string Describe() const {
        return std::string(settings_.network.name) + ", seed " + std::to_string(settings_.seed) +
               ", offset " + std::to_string(settings_.offset.count()) + " ticks";
    }

    /// The camera's clock at a host's time of the present session.
    TimePoint CameraTime(TimePoint time_host) const {
        const Ticks sinceStart = time_host - settings_.start;
        TimePoint time_cam = time_host + offset_ + _Share(sinceStart - sessionStart_, settings_.drift_ppm);
        for (const ClockStep& step : settings_.steps) {
            if (step.after > sessionStart_ && step.after <= sinceStart)
                time_cam += step.by;
        }
        return time_cam;
    }

    /// What the library looks for: the host's clock less the camera's, in milliseconds.
    double TrueD_ms(TimePoint time_host) const {
        return static_cast<double>((time_host - CameraTime(time_host)).count()) / 10'000.0;
    }

    /// The next arrival, in the order of time.
    Arrival Next() {
        // Nothing that is still to be sent can arrive before it is sent.
        while (underWay_.empty() || underWay_.top().arrival.at_host > settings_.start + _NextSending())
            _SendNext();
        Arrival arrival = underWay_.top().arrival;
        underWay_.pop();
        return arrival;
    }

private:
    struct UnderWay {
        Arrival arrival;
        std::uint64_t order;
    };
    struct Later {
        bool operator()(const UnderWay& a, const UnderWay& b) const {
            return a.arrival.at_host != b.arrival.at_host ? a.arrival.at_host > b.arrival.at_host
                                                          : a.order > b.order;
        }
    };

    static Ticks _Share(Ticks time, double ppm) {
        return Ticks(static_cast<std::int64_t>(static_cast<double>(time.count()) * (ppm * 1e-6)));
    }

    Ticks _CaptureOf(std::uint64_t frame) const {
        return settings_.framePeriod * static_cast<std::int64_t>(frame);
    }

    bool _ReportIsNext() const {
        return settings_.reportInterval.count() > 0 && nextReport_ <= _CaptureOf(nextFrame_);
    }

    Ticks _NextSending() const { return _ReportIsNext() ? nextReport_ : _CaptureOf(nextFrame_); }

    void _StartSession(Ticks at) {
        sessionStart_ = at;
        nextReport_ = at + settings_.firstReport;
        SSRC_ = static_cast<std::uint32_t>(random_.Next());
        rtpBase_ = static_cast<std::uint32_t>(random_.Next());
        sequence_ = static_cast<std::uint16_t>(random_.Next());
    }

    void _SendNext() {
        if (nextReboot_ < settings_.reboots.size()) {
            const Reboot& reboot = settings_.reboots[nextReboot_];
            if (_NextSending() >= reboot.after) {
                const Ticks back = reboot.after + reboot.outage;
                while (_CaptureOf(nextFrame_) < back)
                    ++nextFrame_;
                offset_ = reboot.newOffset;
                ++nextReboot_;
                _StartSession(back);
                return;
            }
        }
        if (_ReportIsNext())
            _SendReport();
        else
            _SendFrames();
    }

    void _SendReport() {
        constexpr std::int64_t kNtpToUnixSeconds = 2'208'988'800;  // RFC 868
        constexpr std::int64_t kTicksPerSecond = 10'000'000;
        const std::int64_t time_cam = CameraTime(settings_.start + nextReport_).time_since_epoch().count();
        Arrival arrival;
        arrival.report = std::make_shared<SyncPoint>();
        arrival.report->SyncRTP = _RtpTime(nextReport_);
        arrival.report->SyncSSRC = SSRC_;
        arrival.report->SyncNTPmsw =
            static_cast<std::uint32_t>(time_cam / kTicksPerSecond + kNtpToUnixSeconds);
        arrival.report->SyncNTPlsw =
            static_cast<std::uint32_t>((time_cam % kTicksPerSecond) * 4'294'967'296 / kTicksPerSecond);
        _Send(nextReport_ + settings_.network.Draw(random_), std::move(arrival));
        nextReport_ += settings_.reportInterval;
    }

    // A reference frame is followed by the bidirectionally predicted ones that were captured before it.
    void _SendFrames() {
        constexpr std::int64_t kCodingTime = 10'000;  // 1 ms a frame
        const std::uint64_t frame = nextFrame_++;
        const std::uint64_t group = settings_.bFrames + std::uint64_t{1};
        if (frame % group != 0)
            return;
        const bool isKeyFrame = frame / group % settings_.keyFrameEvery == 0;
        _SendFrame(frame, isKeyFrame ? MediaPacket::kFrameI : MediaPacket::kFrameP, _CaptureOf(frame));
        if (frame == 0)
            return;
        for (std::uint64_t k = 1; k < group; ++k) {
            _SendFrame(frame - group + k, MediaPacket::kFrameB,
                       _CaptureOf(frame) + Ticks(kCodingTime) * static_cast<std::int64_t>(k));
        }
    }

    void _SendFrame(std::uint64_t frame, MediaPacket::Frametype frameType, Ticks sending) {
        const Ticks latency = settings_.network.Draw(random_);  // the packets of a frame travel together
        const std::uint32_t packets =
            frameType == MediaPacket::kFrameI ? settings_.packetsOfKeyFrame : settings_.packetsOfFrame;
        for (std::uint32_t k = 0; k < packets; ++k) {
            const std::uint16_t sequence = sequence_++;
            if (random_.Chance(settings_.lossChance))
                continue;
            Arrival arrival;
            arrival.packet = std::make_shared<TimingData>();
            arrival.packet->RTP_ts = _RtpTime(_CaptureOf(frame));
            arrival.packet->RTPFreq = settings_.RTPFreq;
            arrival.packet->RTPSeqnum = sequence;
            arrival.packet->SSRC = SSRC_;
            arrival.frameType = frameType;
            arrival.capture_host = settings_.start + _CaptureOf(frame);
            arrival.frame = frame;
            _Send(sending + latency + settings_.packetSpacing * static_cast<std::int64_t>(k),
                  std::move(arrival));
        }
    }

    void _Send(Ticks reception, Arrival arrival) {
        if (settings_.stallEvery.count() > 0) {
            const Ticks inPeriod = reception % settings_.stallEvery;
            if (inPeriod >= settings_.stallEvery - settings_.stallLength)
                reception += settings_.stallEvery - inPeriod;
        }
        const Ticks afterTheLast = (std::max)(reception, lastHandover_);
        if (settings_.delivery == Delivery::kInOrder)
            reception = afterTheLast;
        if (arrival.packet)
            arrival.packet->TOR_host = settings_.start + reception;
        arrival.at_host = settings_.start + reception;
        if (settings_.delivery == Delivery::kSortedByReceiver)
            arrival.at_host = settings_.start + afterTheLast;
        lastHandover_ = afterTheLast;
        underWay_.push({std::move(arrival), order_++});
    }

    /// The RTP time at a time since the start, rounded down to whole ticks of its clock.
    std::uint32_t _RtpTime(Ticks sinceStart) const {
        const Ticks host = sinceStart - sessionStart_;
        const Ticks camera = host + _Share(host, settings_.drift_ppm);
        const Ticks rtp = camera + _Share(camera, settings_.rtpDrift_ppm);
        const std::int64_t rtpTicks = rtp.count() * static_cast<std::int64_t>(settings_.RTPFreq) / 10'000'000;
        return rtpBase_ + static_cast<std::uint32_t>(rtpTicks);
    }

    Settings settings_;
    Random random_;
    Ticks offset_;
    Ticks sessionStart_{};
    std::size_t nextReboot_ = 0;
    std::uint64_t nextFrame_ = 0;
    Ticks nextReport_{};
    std::uint32_t SSRC_ = 0;
    std::uint32_t rtpBase_ = 0;
    std::uint16_t sequence_ = 0;
    Ticks lastHandover_{};
    std::uint64_t order_ = 0;
    std::priority_queue<UnderWay, std::vector<UnderWay>, Later> underWay_;
};

}  // namespace camclock::sim
