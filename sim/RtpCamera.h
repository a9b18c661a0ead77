#pragma once

#include "sim/SimulatedCamera.h"

#include <camclock/TimePoint.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

namespace camclock::sim {

/// What a camera on the network sends: a datagram of RTP or RTCP, and what nobody but the simulation knows of
/// it.
struct Datagram {
    std::vector<std::uint8_t> bytes;
    bool rtcp = false;
    TimePoint arrived_host{};
    TimePoint captured_host{};  ///< the truth; of an RTP packet
    std::uint64_t frame = 0;    ///< counted from 0
    std::uint32_t rtp_ts = 0;
};

/// A camera that sends bytes: H.264 packets and sender reports, over a network. Its wall clock, its RTP clock
/// and its source may be set, it may fall silent, and it knows the truth.
///
/// A pure function of its settings and of what is done to it. It has no end.
///
///     RtpCamera camera(settings);
///     camera.At(seconds(160), [](RtpCamera& c) { c.SetWallClock(seconds(30)); });
///     const Datagram next = camera.Next();
class RtpCamera {
public:
    struct Settings {
        std::uint64_t seed = 1;
        TimePoint start = TimePoint(Ticks(17'000'000'000'000'000));  ///< of the first frame, host's clock
        Ticks offset{12'345'670'000};  ///< wall clock less the host's, at the start
        double skew_ppm = 20.0;  ///< so much faster runs the camera's crystal, which drives both its clocks
        bool rtpFromWallClock = false;  ///< stamps follow the wall clock when it is set
        std::uint32_t rate_Hz = 90'000;
        Ticks framePeriod{400'000};  ///< host's clock; 25 frames a second
        std::uint32_t keyFrameEvery = 25;
        std::uint32_t packetsOfKeyFrame = 4;
        std::uint32_t packetsOfFrame = 2;
        std::uint32_t bFrames = 0;  ///< between two reference frames; sent right after the later one
        Ticks firstReport{7'000'000};
        Ticks reportInterval{50'000'000};  ///< 0: no reports
        Ticks reportNoise{};               ///< either way, even
        Ticks inside{275'600};             ///< from capture to sending; with the LAN's median 28 ms in all
        NetworkModel network = kLan;
        double lossChance = 0.0;       ///< of an RTP packet
        double duplicateChance = 0.0;  ///< likewise
        std::uint32_t reorder = 0;     ///< RTP packets are held back by up to so many others
        std::uint8_t payloadType = 96;
        std::uint32_t ssrc = 0x1234'5678;
    };

    explicit RtpCamera(const Settings& settings)
        : settings_(settings)
        , random_(settings.seed)
        , ssrc_(settings.ssrc)
        , sequence_(static_cast<std::uint16_t>(random_.Next()))
        , rtpBase_(static_cast<std::uint32_t>(random_.Next()))
        , nextReport_(settings.firstReport) {}

    const Settings& GetSettings() const { return settings_; }

    /// Does something to the camera when its time has come: before the first frame or report from then on.
    void At(Ticks sinceStart, std::function<void(RtpCamera&)> action) {
        actions_.push_back({sinceStart, std::move(action)});
        std::stable_sort(actions_.begin(), actions_.end(),
                         [](const Action& a, const Action& b) { return a.at < b.at; });
    }

    // ---- what may be done to it

    /// Sets the wall clock, and with it the stamps of a camera that makes them from it.
    void SetWallClock(Ticks by) {
        adjusted_ += by;
        if (settings_.rtpFromWallClock)
            rtpAdjusted_ += by;
    }
    /// Sets the RTP clock alone.
    void SetRtpClock(Ticks by) { rtpAdjusted_ += by; }
    /// Sends nothing for a while.
    void FallSilent(Ticks length) { silentUntil_ = now_ + length; }
    /// Another SSRC with stamps and sequence numbers of its own, as after a restart.
    void ChangeSource() {
        ssrc_ = static_cast<std::uint32_t>(random_.Next());
        sequence_ = static_cast<std::uint16_t>(random_.Next());
        rtpBase_ = static_cast<std::uint32_t>(random_.Next());
    }
    /// Reports tell this NTP time from now on, instead of the wall clock's; none: the wall clock's again.
    void TellNtp(std::function<std::uint64_t(std::uint64_t right)> tell) { tell_ = std::move(tell); }

    std::uint32_t Ssrc() const { return ssrc_; }

    /// The wall clock, and with it what the library looks for: the host's clock less the camera's.
    TimePoint WallClock(TimePoint time_host) const {
        const Ticks since = time_host - settings_.start;
        return time_host + settings_.offset + adjusted_ + _Gained(since);
    }

    /// The next datagram, in the order of arrival.
    Datagram Next() {
        while (underWay_.empty() || underWay_.top().datagram.arrived_host > settings_.start + _NextSending())
            _SendNext();
        Datagram datagram = underWay_.top().datagram;
        underWay_.pop();
        return datagram;
    }

    /// An RTP packet (RFC 3550, 5.1).
    static std::vector<std::uint8_t> RtpBytes(std::uint8_t payloadType, bool marker, std::uint16_t sequence,
                                              std::uint32_t rtp_ts, std::uint32_t ssrc,
                                              const std::vector<std::uint8_t>& payload) {
        std::vector<std::uint8_t> bytes{0x80, static_cast<std::uint8_t>((marker ? 0x80U : 0U) | payloadType)};
        _Append(bytes, sequence, 2);
        _Append(bytes, rtp_ts, 4);
        _Append(bytes, ssrc, 4);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }

    /// A sender report without report blocks (RFC 3550, 6.4.1).
    static std::vector<std::uint8_t> ReportBytes(std::uint32_t ssrc, std::uint64_t ntp,
                                                 std::uint32_t rtp_ts) {
        std::vector<std::uint8_t> bytes{0x80, 200, 0, 6};
        _Append(bytes, ssrc, 4);
        _Append(bytes, ntp, 8);
        _Append(bytes, rtp_ts, 4);
        _Append(bytes, 0, 8);  // counts of packets and bytes
        return bytes;
    }

    /// A goodbye (RFC 3550, 6.6).
    static std::vector<std::uint8_t> ByeBytes(std::uint32_t ssrc) {
        std::vector<std::uint8_t> bytes{0x81, 203, 0, 1};
        _Append(bytes, ssrc, 4);
        return bytes;
    }

    static std::uint64_t NtpOf(TimePoint time) {
        constexpr std::int64_t kNtpToUnixSeconds = 2'208'988'800;  // RFC 868
        constexpr std::int64_t kTicksPerSecond = 10'000'000;
        std::int64_t seconds = time.time_since_epoch().count() / kTicksPerSecond;
        std::int64_t rest = time.time_since_epoch().count() % kTicksPerSecond;
        if (rest < 0) {
            rest += kTicksPerSecond;
            --seconds;
        }
        return static_cast<std::uint64_t>(seconds + kNtpToUnixSeconds) << 32 |
               static_cast<std::uint64_t>((rest * 4'294'967'296 + kTicksPerSecond / 2) / kTicksPerSecond);
    }

private:
    struct Action {
        Ticks at;
        std::function<void(RtpCamera&)> action;
    };
    struct UnderWay {
        Datagram datagram;
        std::uint64_t order;
    };
    struct Later {
        bool operator()(const UnderWay& a, const UnderWay& b) const {
            return a.datagram.arrived_host != b.datagram.arrived_host
                       ? a.datagram.arrived_host > b.datagram.arrived_host
                       : a.order > b.order;
        }
    };

    static void _Append(std::vector<std::uint8_t>& bytes, std::uint64_t value, int size) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }

    Ticks _Gained(Ticks since) const {
        return Ticks(std::llround(static_cast<double>(since.count()) * settings_.skew_ppm * 1e-6));
    }

    Ticks _CaptureOf(std::uint64_t frame) const {
        return settings_.framePeriod * static_cast<std::int64_t>(frame);
    }

    bool _ReportIsNext() const {
        return settings_.reportInterval.count() > 0 && nextReport_ <= _CaptureOf(nextFrame_);
    }
    Ticks _NextSending() const { return _ReportIsNext() ? nextReport_ : _CaptureOf(nextFrame_); }

    std::uint32_t _RtpTime(Ticks since) const {
        const Ticks time = since + _Gained(since) + rtpAdjusted_;
        const double ticks =
            static_cast<double>(time.count()) * 1e-7 * static_cast<double>(settings_.rate_Hz);
        return rtpBase_ + static_cast<std::uint32_t>(std::llround(ticks));
    }

    void _SendNext() {
        now_ = _NextSending();
        while (done_ < actions_.size() && actions_[done_].at <= now_)
            actions_[done_++].action(*this);
        if (_ReportIsNext())
            _SendReport();
        else
            _SendFrames();
    }

    void _SendReport() {
        const Ticks at = nextReport_;
        nextReport_ += settings_.reportInterval;
        if (at < silentUntil_)
            return;
        TimePoint told = WallClock(settings_.start + at);
        if (settings_.reportNoise.count() > 0) {
            const auto width = static_cast<std::uint64_t>(2 * settings_.reportNoise.count() + 1);
            told += Ticks(static_cast<std::int64_t>(random_.Below(width))) - settings_.reportNoise;
        }
        const std::uint64_t ntp = NtpOf(told);
        Datagram datagram;
        datagram.rtcp = true;
        datagram.rtp_ts = _RtpTime(at);
        datagram.bytes = ReportBytes(ssrc_, tell_ ? tell_(ntp) : ntp, datagram.rtp_ts);
        _Send(std::move(datagram), at + settings_.network.Draw(random_));
    }

    // A reference frame is followed by the bidirectionally predicted ones that were captured before it.
    void _SendFrames() {
        const std::uint64_t frame = nextFrame_++;
        const std::uint64_t group = settings_.bFrames + std::uint64_t{1};
        if (frame % group != 0 || _CaptureOf(frame) < silentUntil_)
            return;
        const bool key = frame / group % settings_.keyFrameEvery == 0;
        constexpr std::uint8_t kIdr = 0x65;
        constexpr std::uint8_t kSlice = 0x41;
        constexpr std::uint8_t kUnreferencedSlice = 0x01;
        _SendFrame(frame, key ? kIdr : kSlice, key ? settings_.packetsOfKeyFrame : settings_.packetsOfFrame,
                   _CaptureOf(frame));
        if (frame == 0)
            return;
        constexpr Ticks kCodingTime(10'000);  // 1 ms a frame
        for (std::uint64_t k = 1; k < group; ++k)
            _SendFrame(frame - group + k, kUnreferencedSlice, settings_.packetsOfFrame,
                       _CaptureOf(frame) + kCodingTime * static_cast<std::int64_t>(k));
    }

    void _SendFrame(std::uint64_t frame, std::uint8_t nal, std::uint32_t packets, Ticks sending) {
        const Ticks latency =
            settings_.inside + settings_.network.Draw(random_);  // the packets of a frame travel together
        // first_mb_in_slice 0, then slice_type 7 (I), 5 (P) or 6 (B): ITU-T H.264, 7.3.3
        const std::uint8_t slice = nal == 0x65 ? 0x88 : nal == 0x41 ? 0x98 : 0x9C;
        for (std::uint32_t k = 0; k < packets; ++k) {
            Datagram datagram;
            datagram.captured_host = settings_.start + _CaptureOf(frame);
            datagram.frame = frame;
            datagram.rtp_ts = _RtpTime(_CaptureOf(frame));
            datagram.bytes = RtpBytes(settings_.payloadType, k + 1 == packets, sequence_++, datagram.rtp_ts,
                                      ssrc_, {nal, slice, 0x80, static_cast<std::uint8_t>(k)});
            if (random_.Chance(settings_.lossChance))
                continue;
            const Ticks reception = sending + latency + Ticks(200) * static_cast<std::int64_t>(k);
            if (random_.Chance(settings_.duplicateChance))
                _Send(datagram, reception);
            _Send(std::move(datagram), reception);
        }
    }

    void _Send(Datagram datagram, Ticks reception) {
        reception = (std::max)(reception, lastHandover_);  // the way is a queue
        lastHandover_ = reception;
        datagram.arrived_host = settings_.start + reception;
        if (settings_.reorder == 0 || datagram.rtcp) {
            underWay_.push({std::move(datagram), order_++});
            return;
        }
        // One packet at a time is held back while up to `reorder` others pass.
        if (!holding_ && random_.Chance(0.1)) {
            holding_ = true;
            held_ = std::move(datagram);
            passes_ = 1 + random_.Below(settings_.reorder);
            return;
        }
        underWay_.push({std::move(datagram), order_++});
        if (holding_ && --passes_ == 0) {
            holding_ = false;
            held_.arrived_host = settings_.start + reception;
            underWay_.push({std::move(held_), order_++});
        }
    }

    Settings settings_;
    Random random_;
    std::uint32_t ssrc_;
    std::uint16_t sequence_;
    std::uint32_t rtpBase_;
    Ticks nextReport_;
    std::uint64_t nextFrame_ = 0;
    Ticks now_{};
    Ticks silentUntil_{};
    Ticks adjusted_{};
    Ticks rtpAdjusted_{};
    std::function<std::uint64_t(std::uint64_t)> tell_;
    std::vector<Action> actions_;
    std::size_t done_ = 0;
    Ticks lastHandover_{};
    std::uint64_t order_ = 0;
    bool holding_ = false;
    Datagram held_;
    std::uint64_t passes_ = 0;
    std::priority_queue<UnderWay, std::vector<UnderWay>, Later> underWay_;
};

}  // namespace camclock::sim
