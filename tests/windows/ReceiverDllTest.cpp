// An application's view of camclock_receiver.dll: public headers only, linked against the DLLs alone.

#include <winsock2.h>

#include <camclock/Receiver.h>
#include <camclock/Utilities.h>

#include "windows/VersionResource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace camclock::receiver;
using camclock::TimePoint;
using std::chrono::milliseconds;

constexpr std::uint32_t kSource = 0xA1B2C3D4;

/// A packet that is a frame: a P slice of H.264, with the marker bit.
std::vector<std::uint8_t> Packet(std::uint16_t seqnum, std::uint32_t RTP_ts) {
    const auto byte = [](std::uint32_t value, unsigned shift) {
        return static_cast<std::uint8_t>(value >> shift);
    };
    return {0x80,
            0x80 | 96,
            byte(seqnum, 8),
            byte(seqnum, 0),
            byte(RTP_ts, 24),
            byte(RTP_ts, 16),
            byte(RTP_ts, 8),
            byte(RTP_ts, 0),
            byte(kSource, 24),
            byte(kSource, 16),
            byte(kSource, 8),
            byte(kSource, 0),
            0x41,
            0xC0};
}

TEST(ReceiverDll, CarriesTheVersionOfTheHeaderAsItsResource) {
    camclock::test::ExpectVersionResource("camclock_receiver.dll");
}

TEST(ReceiverDll, GivesTheFormatsOfADescription) {
    const std::vector<Format> formats = Format::FromSdp(
        "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 sprop-parameter-sets=Z2Q=,aA==\r\n"
        "m=audio 0 RTP/AVP 8\r\na=control:trackID=2\r\n");
    ASSERT_EQ(formats.size(), 2U);
    EXPECT_EQ(formats[0].codec, Codec::kH264);
    EXPECT_EQ(formats[0].headers, "Z2Q=,aA==");
    EXPECT_EQ(formats[1].encoding, "PCMA");
    EXPECT_EQ(formats[1].clockRate_Hz, 8'000U);
    EXPECT_EQ(formats[1].control, "trackID=2");
}

// The receiver stands on camclock.dll: one clock for the process.
TEST(ReceiverDll, SharesTheClockOfTheFirstLibrary) {
    const TimePoint before = Now();
    const TimePoint rounded = camclock::Utilities::getInstance().GetTime();
    EXPECT_LE(std::chrono::abs(rounded - before), milliseconds(100));
    const TimePoint stamped = FromSystem(std::chrono::system_clock::now());
    EXPECT_LE(stamped, Now());
    EXPECT_GE(stamped, before);
}

TEST(ReceiverDll, TurnsPacketsAndReportsIntoFramesWithTimes) {
    std::vector<Frame> frames;
    std::vector<std::string> events;
    Camera camera("gate 3", Settings(), [&events](const Event& event) { events.push_back(event.stream); });
    const auto stream =
        camera.AddStream("video", Format::FromSdp("m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n").at(0),
                         [&frames](const Frame& frame) { frames.push_back(frame); });

    // The camera's clock is 1,000 s ahead of this host's; frames arrive 30 ms after they were captured.
    const TimePoint start = Now();
    const auto sinceUnix = start.time_since_epoch() + std::chrono::seconds(1'000);
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(sinceUnix);
    const double rest = std::chrono::duration<double>(sinceUnix - whole).count();
    const std::uint64_t ntp = (static_cast<std::uint64_t>(whole.count()) + 2'208'988'800U) << 32U |
                              static_cast<std::uint64_t>(rest * 4'294'967'296.0);
    stream->FeedReport(kSource, ntp, 0, start);
    for (std::uint16_t i = 0; i < 60; ++i) {
        const auto packet = Packet(i, i * 3'600U);
        stream->FeedRtp(packet.data(), packet.size(), start + milliseconds(40 * i + 30));
    }
    ASSERT_EQ(frames.size(), 60U);
    EXPECT_EQ(frames.back().trust, Trust::kGood);
    EXPECT_EQ(frames.back().type, camclock::MediaPacket::kFrameP);
    EXPECT_EQ(frames.back().pts, 59 * 3'600);
    EXPECT_LE(std::chrono::abs(frames.back().captured_host - (start + milliseconds(40 * 59))),
              milliseconds(2));
    EXPECT_EQ(stream->Snapshot().reports, 1U);
    EXPECT_EQ(events, std::vector<std::string>{"video"});
    stream->FeedRtp(nullptr, 0, start);
    EXPECT_EQ(stream->Snapshot().malformed, 1U);
}

TEST(ReceiverDll, ShowsTheMessagesOfBothLibraries) {
    std::atomic<int> messages{0};
    OnLogMessage([&messages](const std::string& category, const std::string&) {
        messages += category.rfind("RTSP.", 0) == 0 ? 1 : 0;
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    {
        Camera camera("gate 3");
        const auto stream = camera.AddStream("video", Format(), [](const Frame&) {});
        stream->FeedReport(kSource, std::uint64_t{3'900'000'000} << 32U, 0, Now());
        for (std::uint16_t i = 0; messages == 0 && std::chrono::steady_clock::now() < deadline; ++i) {
            const auto packet = Packet(i, i * 3'600U);
            stream->FeedRtp(packet.data(), packet.size(), Now());
        }
    }
    OnLogMessage(nullptr);
    EXPECT_GT(messages, 0);
}

TEST(ReceiverDll, LetsTheApplicationsExceptionsThrough) {
    Camera camera("gate 3");
    const auto stream = camera.AddStream(
        "video", Format(), [](const Frame&) { throw std::runtime_error("the application's own"); });
    const auto packet = Packet(1, 1);
    EXPECT_THROW(stream->FeedRtp(packet.data(), packet.size(), Now()), std::runtime_error);
}

}  // namespace
