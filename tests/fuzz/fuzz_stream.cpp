// Any datagrams, reports and frames at any pace to one stream of a camera. The input: a byte of settings,
// then records of a byte for the kind and one for the pause before, and of what they carry; datagrams have
// their length in front.
#include <camclock/Receiver.h>

#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace camclock::receiver;
using camclock::TimePoint;
using camclock::fuzz::Require;

/// Bytes of the input, zeros behind its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : data_(data)
        , left_(size) {}

    bool AtEnd() const { return left_ == 0; }

    std::uint64_t Number(int bytes) {
        std::uint64_t number = 0;
        for (int i = 0; i < bytes; ++i)
            number = number << 8U | _Byte();
        return number;
    }

    std::vector<unsigned char> Datagram() {
        const std::size_t size = (std::min)(static_cast<std::size_t>(Number(1)), left_);
        const auto bytes = camclock::fuzz::Exact(data_, size);
        data_ += size;
        left_ -= size;
        return bytes;
    }

private:
    std::uint8_t _Byte() {
        if (left_ == 0)
            return 0;
        --left_;
        return *data_++;
    }

    const std::uint8_t* data_;
    std::size_t left_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint64_t flags = input.Number(1);
    Settings settings;
    settings.estimator = (flags & 1U) != 0 ? Estimator::kFloorLine : Estimator::kMedian;
    if ((flags & 2U) != 0)
        settings.cameraDelay = {std::chrono::milliseconds(20), std::chrono::milliseconds(40)};
    settings.requireReports = (flags & 4U) != 0;
    Format format;
    format.codec = static_cast<Codec>(flags >> 3U & 3U);
    format.payloadType = (flags & 32U) != 0 ? 96 : -1;
    format.clockRate_Hz = (flags & 64U) != 0 ? 8'000 : 90'000;

    std::uint64_t frames = 0;
    std::uint32_t epoch = 1;
    Camera camera("fuzz", settings, [](const Event& event) {
        for (const char c : event.text)
            Require(static_cast<unsigned char>(c) >= 0x20);
    });
    const auto stream = camera.AddStream("video", format, [&](const Frame& frame) {
        ++frames;
        Require(frame.captured_host <= frame.arrived_host && frame.median_host <= frame.arrived_host &&
                frame.precise_host <= frame.arrived_host);
        Require(!frame.bound || frame.bound->first <= frame.bound->second);
        Require(frame.epoch >= epoch && frame.packets > 0);
        epoch = frame.epoch;
    });

    TimePoint now{std::chrono::seconds(1'700'000'000)};
    while (!input.AtEnd()) {
        const std::uint64_t kind = input.Number(1);
        const std::uint64_t pause = input.Number(1);
        now += pause < 200 ? camclock::Ticks(std::chrono::milliseconds(pause))
                           : camclock::Ticks(std::chrono::seconds((pause - 199) * (pause - 199)));
        switch (kind % 8) {
        case 0:
        case 1:
        case 2: {
            const auto packet = input.Datagram();
            stream->FeedRtp(packet.data(), packet.size(), now);
            break;
        }
        case 3: {
            const auto report = input.Datagram();
            stream->FeedRtcp(report.data(), report.size(), now);
            break;
        }
        case 4: {
            const auto ssrc = static_cast<std::uint32_t>(input.Number(1));
            const std::uint64_t ntp = input.Number(8);
            stream->FeedReport(ssrc, ntp, static_cast<std::uint32_t>(input.Number(4)), now);
            break;
        }
        case 5: {
            Frame frame;
            frame.ssrc = static_cast<std::uint32_t>(input.Number(1));
            frame.rtp_ts = static_cast<std::uint32_t>(input.Number(4));
            frame.seq = static_cast<std::uint16_t>(input.Number(2));
            frame.arrived_host = now;
            frame.packets = 1;
            stream->FeedFrame(frame);
            break;
        }
        case 6:
            if (pause % 2 != 0)
                stream->Restarted();
            else
                stream->Flush();
            break;
        default: camera.Poll(now);
        }
    }
    stream->Flush();
    Require(stream->Snapshot().frames == frames);
    return 0;
}
