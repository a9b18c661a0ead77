#pragma once

#include "sim/RtpCamera.h"
#include "support/ManualCounter.h"

#include <camclock/Receiver.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace camclock::receiver {

/// A frame and the truth about it.
struct Seen {
    Frame frame;
    TimePoint captured_host{};  ///< the truth; `kNotYetSet` for a frame that nobody sent
    double Error_ms() const {
        return static_cast<double>((frame.captured_host - captured_host).count()) / 1e4;
    }
};

/// What a receiver made of a simulated camera's datagrams, while the host's clock followed their arrivals.
class Watched {
public:
    /// Settings for this camera: the mean latency is right, to the millisecond.
    static Settings For(const sim::RtpCamera::Settings& device) {
        Settings settings;
        settings.meanLatency = std::chrono::milliseconds(
            std::llround(static_cast<double>(device.inside.count()) / 1e4 + device.network.Median_ms()));
        return settings;
    }

    static Format H264() {
        Format format;
        format.codec = Codec::kH264;
        format.encoding = "H264";
        format.payloadType = 96;
        return format;
    }

    explicit Watched(const sim::RtpCamera::Settings& cameraSettings)
        : Watched(cameraSettings, For(cameraSettings)) {}
    Watched(const sim::RtpCamera::Settings& cameraSettings, const Settings& settings,
            const Format& format = H264())
        : counter(cameraSettings.start)
        , device(cameraSettings)
        , camera("gate", settings, [this](const Event& event) { events.push_back(event); })
        , stream(camera.AddStream("video", format, [this](const Frame& frame) { _Take(frame); })) {}

    /// Receives until the camera has captured so many frames; what is done before each datagram may be given.
    template <class Before>
    void Run(std::uint64_t count, Before before) {
        for (;;) {
            const sim::Datagram datagram = device.Next();
            if (!datagram.rtcp && datagram.frame >= count)
                break;
            Advance(datagram.arrived_host);
            before(datagram);
            Feed(datagram);
        }
        stream->Flush();
    }
    void Run(std::uint64_t count) {
        Run(count, [](const sim::Datagram&) {});
    }

    void Feed(const sim::Datagram& datagram) {
        if (datagram.rtcp) {
            stream->FeedRtcp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
            return;
        }
        ++fedPackets;
        truth_[datagram.rtp_ts] = datagram.captured_host;
        stream->FeedRtp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
    }

    /// Lets the host's clock follow, and has the camera polled some times a second.
    void Advance(TimePoint to) {
        while (now_ < to) {
            const TimePoint next = (std::min)(to, now_ + std::chrono::milliseconds(500));
            counter.Advance(next - now_);
            now_ = next;
            if (next != to)
                camera.Poll();
        }
    }

    double WorstGood_ms() const {
        double worst = 0.0;
        for (const Seen& seen : frames) {
            if (seen.frame.trust == Trust::kGood)
                worst = (std::max)(worst, std::abs(seen.Error_ms()));
        }
        return worst;
    }

    /// Of all frames from `first` on.
    double Worst_ms(std::size_t first = 0) const {
        double worst = 0.0;
        for (std::size_t i = first; i < frames.size(); ++i)
            worst = (std::max)(worst, std::abs(frames[i].Error_ms()));
        return worst;
    }

    std::size_t Count(Trust trust) const {
        return static_cast<std::size_t>(std::count_if(
            frames.begin(), frames.end(), [trust](const Seen& seen) { return seen.frame.trust == trust; }));
    }
    std::size_t Count(Event::Kind kind) const {
        return static_cast<std::size_t>(std::count_if(
            events.begin(), events.end(), [kind](const Event& event) { return event.kind == kind; }));
    }

    bool PtsGrows() const {
        return std::adjacent_find(frames.begin(), frames.end(), [](const Seen& a, const Seen& b) {
                   return a.frame.pts >= b.frame.pts;
               }) == frames.end();
    }

    /// By how much the stamps of first and last frame lie further apart than their times of capture.
    double PtsBeside_ms() const {
        const Frame& first = frames.front().frame;
        const Frame& last = frames.back().frame;
        const double stamps =
            static_cast<double>(last.pts - first.pts) / (device.GetSettings().rate_Hz / 1e3);
        return stamps -
               static_cast<double>((frames.back().captured_host - frames.front().captured_host).count()) /
                   1e4;
    }

    test::ManualCounter counter;
    sim::RtpCamera device;
    std::vector<Seen> frames;
    std::vector<Event> events;
    std::uint64_t fedPackets = 0;
    Camera camera;
    std::shared_ptr<Stream> stream;

private:
    void _Take(const Frame& frame) {
        const auto truth = truth_.find(frame.rtp_ts);
        frames.push_back({frame, truth == truth_.end() ? kNotYetSet : truth->second});
    }

    std::map<std::uint32_t, TimePoint> truth_;
    TimePoint now_ = device.GetSettings().start;
};

}  // namespace camclock::receiver
