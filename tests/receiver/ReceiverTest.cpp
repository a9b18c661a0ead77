#include "receiver/Watched.h"

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include <log4cpp/Category.hh>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <type_traits>

namespace camclock::receiver {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kSsrc = 0x1234'5678;

static_assert(std::is_copy_constructible_v<Frame> && std::is_nothrow_move_constructible_v<Frame>);

sim::RtpCamera::Settings Lan(std::uint64_t seed = 1) {
    sim::RtpCamera::Settings settings;
    settings.seed = seed;
    return settings;
}

/// A camera with one stream that is fed by hand, at times of the test's own.
class ByHand {
public:
    explicit ByHand(const Settings& settings = {})
        : camera("gate", settings, [this](const Event& event) { events.push_back(event); })
        , stream(camera.AddStream("video", Watched::H264(),
                                  [this](const Frame& frame) { frames.push_back(frame); })) {}

    void Packet(std::uint16_t number, std::uint32_t rtp_ts, bool marker = true, std::uint32_t ssrc = kSsrc) {
        const auto bytes = sim::RtpCamera::RtpBytes(96, marker, number, rtp_ts, ssrc, {0x41, 0x98, 0x80});
        stream->FeedRtp(bytes.data(), bytes.size(), now);
    }
    void Pass(Ticks time) {
        counter.Advance(time);
        now += time;
    }
    /// So many frames of one packet, 40 ms apart.
    void Frames(int count) {
        for (int i = 0; i < count; ++i) {
            Packet(seq++, rtp);
            rtp += 3'600;
            Pass(milliseconds(40));
        }
    }
    std::uint64_t Ntp(Ticks offset = {}) const { return sim::RtpCamera::NtpOf(now + offset); }
    std::size_t Count(Event::Kind kind) const {
        return static_cast<std::size_t>(std::count_if(
            events.begin(), events.end(), [kind](const Event& event) { return event.kind == kind; }));
    }

    TimePoint now = TimePoint(Ticks(17'000'000'000'000'000));
    test::ManualCounter counter{now};
    std::uint16_t seq = 7;
    std::uint32_t rtp = 1'000;
    std::vector<Frame> frames;
    std::vector<Event> events;
    Camera camera;
    std::shared_ptr<Stream> stream;
};

// ---- the host's clock

TEST(ReceiverNow, IsTheProcessClockBeforeRounding) {
    for (int i = 0; i < 1'000; ++i) {
        const TimePoint before = Now();
        const TimePoint rounded = Utilities::getInstance().GetTime();
        const TimePoint after = Now();
        ASSERT_LE(before, after);
        ASSERT_GE(rounded, before - microseconds(700));
        ASSERT_LE(rounded, after + microseconds(700));
    }
}

TEST(ReceiverNow, FollowsTheApplicationsAnchor) {
    Now();
    {
        const TimePoint start(Ticks(1'234'567'890'000));
        test::ManualCounter counter(start);
        EXPECT_EQ(Now(), start);
        counter.Advance(Ticks(1'234'567));
        EXPECT_EQ(Now(), start + Ticks(1'234'567));
    }
    const TimePoint system = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
    EXPECT_LE(Now() - system, seconds(2));
    EXPECT_GE(Now() - system, -seconds(2));
}

TEST(ReceiverNow, AStampOfTheSystemClockIsAsOldOnTheHostsClock) {
    const auto system = std::chrono::system_clock::now();
    const TimePoint now = Now();
    const TimePoint stamped = FromSystem(system - milliseconds(250));
    EXPECT_LE(stamped, now - milliseconds(249));
    EXPECT_GE(stamped, now - milliseconds(1'250));
    for (const auto time : {system + std::chrono::hours(1), (std::chrono::system_clock::time_point::min)(),
                            (std::chrono::system_clock::time_point::max)()}) {
        const TimePoint never = FromSystem(time);
        EXPECT_LE(never, Now()) << "never later than now";
    }
}

// ---- frames

TEST(Receiver, AFrameTellsWhatArrived) {
    ByHand t;
    const auto first = sim::RtpCamera::RtpBytes(96, false, 7, 1'000, kSsrc, {0x65, 0x88, 0x80, 1});
    const auto second = sim::RtpCamera::RtpBytes(96, true, 8, 1'000, kSsrc, {0x65, 0x00, 0x80});
    const TimePoint arrival = t.now;
    t.stream->FeedRtp(first.data(), first.size(), t.now);
    t.Pass(milliseconds(2));
    t.stream->FeedRtp(second.data(), second.size(), t.now);
    ASSERT_EQ(t.frames.size(), 1U);
    const Frame& frame = t.frames[0];
    EXPECT_EQ(frame.arrived_host, arrival);
    EXPECT_EQ(frame.captured_host, arrival - milliseconds(30));
    EXPECT_EQ(frame.captured_cam, arrival);
    EXPECT_EQ(frame.median_host, arrival - milliseconds(30));
    EXPECT_EQ(frame.trust, Trust::kArrivalOnly);
    EXPECT_EQ(frame.D, milliseconds(0));
    EXPECT_EQ(frame.pts, 0);
    EXPECT_EQ(frame.epoch, 1U);
    EXPECT_EQ(frame.rtp_ts, 1'000U);
    EXPECT_EQ(frame.ssrc, kSsrc);
    EXPECT_EQ(frame.seq, 7);
    EXPECT_EQ(frame.type, MediaPacket::kFrameI);
    EXPECT_TRUE(frame.key);
    EXPECT_TRUE(frame.complete);
    EXPECT_EQ(frame.packets, 2U);
    EXPECT_EQ(frame.bytes, 7U);
    EXPECT_FALSE(frame.uncertainty);
    EXPECT_FALSE(frame.bound);
}

TEST(Receiver, TheFirstSyncedFrameIsSeededFromItself) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(std::chrono::hours(1)), t.rtp, t.now);
    t.Frames(1);
    ASSERT_EQ(t.frames.size(), 1U);
    EXPECT_EQ(t.frames[0].trust, Trust::kSettling);
    EXPECT_EQ(t.frames[0].D, -std::chrono::hours(1) - milliseconds(30));
    EXPECT_LE(t.frames[0].captured_host, t.frames[0].arrived_host - microseconds(29'990));
    EXPECT_GE(t.frames[0].captured_host, t.frames[0].arrived_host - microseconds(30'010));
    EXPECT_EQ(t.Count(Event::Kind::kFirstReport), 1U);
}

TEST(Receiver, TwentySixFramesSettle) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(30);
    for (std::size_t i = 0; i < 30; ++i)
        EXPECT_EQ(t.frames[i].trust, i < 26 ? Trust::kSettling : Trust::kGood) << i;
}

TEST(Receiver, AnEstimateAfterTheArrivalIsReplaced) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(40);
    t.rtp += 9'000;  // the stamp runs 100 ms ahead of the arrival
    t.Frames(1);
    EXPECT_EQ(t.frames.back().trust, Trust::kReplaced);
    EXPECT_EQ(t.frames.back().captured_host, t.frames.back().arrived_host);
    EXPECT_EQ(t.stream->Snapshot().replaced, 1U);
}

TEST(Receiver, ReportsOfAnotherSourceAreForeign) {
    ByHand t;
    t.Frames(1);
    t.stream->FeedReport(0xBAD, t.Ntp(), t.rtp, t.now);
    t.Frames(1);
    EXPECT_EQ(t.frames.back().trust, Trust::kArrivalOnly);
    EXPECT_EQ(t.stream->Snapshot().foreign, 1U);
    EXPECT_EQ(t.stream->Snapshot().reports, 0U);
}

TEST(Receiver, AReportBeforeTheFirstPacketOutlivesThoseOfOthers) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.stream->FeedReport(0xBAD, t.Ntp(std::chrono::hours(5)), t.rtp, t.now);
    t.Frames(1);
    EXPECT_EQ(t.frames.back().trust, Trust::kSettling);
    EXPECT_EQ(t.frames.back().D, milliseconds(-30));
    EXPECT_EQ(t.stream->Snapshot().reports, 1U);
}

TEST(Receiver, PacketsOfAnotherPayloadTypeAreMalformed) {
    ByHand t;
    const auto bytes = sim::RtpCamera::RtpBytes(97, true, 1, 1, kSsrc, {0x41, 0x98});
    t.stream->FeedRtp(bytes.data(), bytes.size(), t.now);
    t.stream->FeedRtp(bytes.data(), 11, t.now);
    t.stream->FeedRtp(nullptr, 100, t.now);
    t.stream->FeedRtcp(bytes.data(), 3, t.now);
    EXPECT_TRUE(t.frames.empty());
    EXPECT_EQ(t.stream->Snapshot().malformed, 4U);
}

TEST(Receiver, FindsTheLast256Frames) {
    ByHand t;
    t.Frames(300);
    for (std::size_t i = 0; i < 300; ++i) {
        const std::optional<Frame> found = t.stream->Find(t.frames[i].rtp_ts);
        ASSERT_EQ(found.has_value(), i >= 300 - 256) << i;
        if (found) {
            ASSERT_EQ(found->seq, t.frames[i].seq);
        }
    }
    EXPECT_FALSE(t.stream->Find(4'711));
}

TEST(Receiver, MapsAStampBeforeItsFrameIsThere) {
    for (const Estimator estimator : {Estimator::kMedian, Estimator::kFloorLine}) {
        Settings settings;
        settings.estimator = estimator;
        ByHand t(settings);
        EXPECT_FALSE(t.stream->Map(1'000));
        t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
        t.Frames(100);
        const std::optional<TimePoint> next = t.stream->Map(t.rtp);
        ASSERT_TRUE(next);
        t.Frames(1);
        const Ticks apart = *next - t.frames.back().captured_host;
        EXPECT_LE(apart, milliseconds(1));
        EXPECT_GE(apart, -milliseconds(1));
    }
}

TEST(Receiver, FramesThatOthersAssembledAreTimedLikewise) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    for (int i = 0; i < 40; ++i) {
        Frame frame;
        frame.arrived_host = t.now;
        frame.rtp_ts = t.rtp;
        frame.ssrc = kSsrc;
        frame.seq = static_cast<std::uint16_t>(3 * i);
        frame.type = MediaPacket::kFrameP;
        frame.packets = 3;
        frame.bytes = 1'000;
        frame.complete = i != 20;
        t.stream->FeedFrame(frame);
        t.rtp += 3'600;
        t.Pass(milliseconds(40));
    }
    ASSERT_EQ(t.frames.size(), 40U);
    EXPECT_EQ(t.frames.back().trust, Trust::kGood);
    EXPECT_EQ(t.frames.back().type, MediaPacket::kFrameP);
    EXPECT_EQ(t.frames.back().bytes, 1'000U);
    EXPECT_EQ(t.frames.back().pts, 39 * 3'600);
    EXPECT_FALSE(t.frames[20].complete);
    EXPECT_TRUE(t.frames[21].complete);
    EXPECT_EQ(t.stream->Snapshot().packets, 120U);
}

TEST(Receiver, FlushDeliversTheOpenFrame) {
    ByHand t;
    t.Packet(1, 1'000, false);
    EXPECT_TRUE(t.frames.empty());
    t.stream->Flush();
    EXPECT_EQ(t.frames.size(), 1U);
    t.stream->Flush();
    EXPECT_EQ(t.frames.size(), 1U);
}

TEST(Receiver, RestartedEndsTheEpochAndForgetsTheSource) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(40);
    t.stream->Restarted();
    t.stream->Restarted();
    t.Packet(9, 77'777, true, 0xABCD);
    EXPECT_EQ(t.frames.back().epoch, 2U);
    EXPECT_EQ(t.frames.back().trust, Trust::kArrivalOnly);
    EXPECT_EQ(t.frames.back().ssrc, 0xABCDU);
    EXPECT_GT(t.frames.back().pts, t.frames[39].pts);
}

TEST(Receiver, RestartedBeforeAnyFrameBeginsNothing) {
    ByHand t;
    t.stream->Restarted();
    t.Frames(1);
    EXPECT_EQ(t.frames[0].epoch, 1U);
    EXPECT_EQ(t.frames[0].pts, 0);
}

TEST(Receiver, AReportBetweenRestartAndFirstPacketIsTheNewEpochs) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(40);
    t.stream->Restarted();
    t.stream->FeedReport(0xABCD, t.Ntp(), 50'000, t.now);
    t.Packet(9, 50'000, true, 0xABCD);
    EXPECT_EQ(t.frames.back().epoch, 2U);
    EXPECT_EQ(t.frames.back().trust, Trust::kSettling);
    EXPECT_EQ(t.stream->Snapshot().foreign, 0U);
    EXPECT_EQ(t.stream->Snapshot().reports, 2U);
}

TEST(Receiver, AReportOnceInAMonthLastsOverWraps) {
    // The nearer way round from the report's stamp changes sides every 13 hours: nobody may see that.
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(60);
    for (int minute = 0; minute < 30 * 60; ++minute) {
        t.Frames(1);
        t.rtp += 90'000U * 60 - 3'600;
        t.Pass(seconds(60) - milliseconds(40));
    }
    t.Frames(60);
    for (std::size_t i = 26; i < t.frames.size(); ++i) {
        const Ticks beside = t.frames[i].arrived_host - milliseconds(30) - t.frames[i].captured_host;
        ASSERT_LE(beside, milliseconds(1)) << i;
        ASSERT_GE(beside, -milliseconds(1)) << i;
    }
    EXPECT_EQ(t.frames.back().epoch, 1U);
    EXPECT_EQ(t.frames.back().pts,
              static_cast<std::int64_t>(119) * 3'600 + std::int64_t{30 * 60} * 60 * 90'000);
}

TEST(Receiver, WhatWasHeldUpIsNotGoodAndKeepsItsPresentationTime) {
    for (const int held_s : {3, 11, 60}) {
        ByHand t;
        const TimePoint start = t.now;
        t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
        t.Frames(100);
        t.Pass(seconds(held_s));
        for (int i = 0; i < 25 * held_s; ++i) {  // all at once
            t.Packet(t.seq++, t.rtp);
            t.rtp += 3'600;
        }
        t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
        t.Frames(200);
        for (std::size_t i = 0; i < t.frames.size(); ++i) {
            const Frame& frame = t.frames[i];
            ASSERT_EQ(frame.pts, static_cast<std::int64_t>(i) * 3'600) << held_s;
            const TimePoint captured = start + milliseconds(40) * static_cast<int>(i) - milliseconds(30);
            if (held_s > 10 && frame.trust == Trust::kGood) {
                ASSERT_LE(frame.captured_host, captured + milliseconds(2)) << held_s << " s, frame " << i;
                ASSERT_GE(frame.captured_host, captured - milliseconds(2)) << held_s << " s, frame " << i;
            }
        }
        EXPECT_EQ(t.frames.back().trust, Trust::kGood);
    }
}

TEST(Receiver, TheMeanLatencyMayChange) {
    ByHand t;
    t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
    t.Frames(60);
    t.camera.SetMeanLatency(milliseconds(80));
    t.camera.SetLeastLatency(microseconds(70'500));
    t.Frames(60);
    const Frame& frame = t.frames.back();
    EXPECT_LE(frame.captured_host, frame.arrived_host - milliseconds(79));
    EXPECT_GE(frame.captured_host, frame.arrived_host - milliseconds(81));
    EXPECT_LE(frame.precise_host, frame.arrived_host - microseconds(70'400));
    EXPECT_GE(frame.precise_host, frame.arrived_host - microseconds(70'600));
}

TEST(Receiver, AClockRateOfZeroIsThatOfVideo) {
    test::ManualCounter counter;
    Camera camera("gate");
    Format format;
    format.clockRate_Hz = 0;
    std::vector<Frame> frames;
    const auto stream =
        camera.AddStream("video", format, [&](const Frame& frame) { frames.push_back(frame); });
    TimePoint now(Ticks(17'000'000'000'000'000));
    for (std::uint16_t i = 0; i < 50; ++i, now += milliseconds(40)) {
        const auto bytes = sim::RtpCamera::RtpBytes(5, true, i, i * 3'600U, kSsrc, {1});
        stream->FeedRtp(bytes.data(), bytes.size(), now);
    }
    ASSERT_EQ(frames.size(), 50U);
    EXPECT_EQ(frames.back().pts, 49 * 3'600);
}

// ---- events

TEST(ReceiverEvents, SilenceAndMissingReportsAreToldOnce) {
    Settings settings;
    settings.requireReports = true;
    ByHand t(settings);
    t.Frames(1);
    for (int i = 0; i < 20; ++i) {
        t.Pass(seconds(2));
        t.camera.Poll();
    }
    EXPECT_EQ(t.Count(Event::Kind::kSilent), 1U);
    EXPECT_EQ(t.Count(Event::Kind::kReportsMissing), 1U) << "also where no report ever came";
    t.Frames(1);
    t.Pass(seconds(11));
    t.camera.Poll();
    EXPECT_EQ(t.Count(Event::Kind::kSilent), 2U);
    EXPECT_EQ(t.Count(Event::Kind::kGap), 1U);
    EXPECT_EQ(t.Count(Event::Kind::kReportsMissing), 1U);
}

TEST(ReceiverEvents, TextsAreOneLineWithoutControlCharacters) {
    test::ManualCounter counter;
    std::vector<Event> events;
    Camera camera("gate\x1b[31m\n", {}, [&](const Event& event) { events.push_back(event); });
    const auto stream = camera.AddStream("vi\tdeo", Watched::H264(), nullptr);
    counter.Advance(seconds(11));
    camera.Poll();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].text, "gate\\x1b[31m\\x0a, vi\\x09deo: nothing has come for 11000 ms");
    EXPECT_EQ(events[0].size, milliseconds(11'000));
}

TEST(ReceiverEvents, NobodyHearsThemAfterTheCamera) {
    test::ManualCounter counter;
    int heard = 0;
    std::shared_ptr<Stream> stream;
    {
        Camera camera("gate", {}, [&](const Event&) { ++heard; });
        stream = camera.AddStream("video", Watched::H264(), nullptr);
    }
    stream->FeedReport(kSsrc, sim::RtpCamera::NtpOf(TimePoint(Ticks(17'000'000'000'000'000))), 0,
                       TimePoint(Ticks(17'000'000'000'000'000)));
    for (std::uint16_t i = 0; i < 100; ++i) {
        const auto bytes = sim::RtpCamera::RtpBytes(96, true, i, i * 3'600U, kSsrc, {0x41});
        stream->FeedRtp(bytes.data(), bytes.size(), TimePoint(Ticks(17'000'000'000'000'000 + i * 400'000)));
    }
    EXPECT_EQ(stream->Snapshot().frames, 100U);
    EXPECT_EQ(heard, 0);
}

// ---- the library behind it

TEST(ReceiverLog, EverybodysMessagesWithoutLog4cpp) {
    std::mutex mutex;
    std::condition_variable came;
    std::vector<std::pair<std::string, std::string>> messages;
    OnLogMessage([&](const std::string& category, const std::string& text) {
        const std::lock_guard<std::mutex> guard(mutex);
        messages.emplace_back(category, text);
        came.notify_all();
    });
    {
        TimeFilter filter("gate: ");
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(came.wait_for(lock, seconds(10), [&] { return !messages.empty(); }));
    }
    OnLogMessage(nullptr);
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0].first, "RTSP.TimeFilter");
    EXPECT_EQ(messages[0].second, "gate: TimeFilter::TimeFilter");
    const std::size_t before = messages.size();
    TimeFilter quiet("gate: ");
    EXPECT_EQ(messages.size(), before);
}

TEST(ReceiverLog, TheLibraryIsNeverAskedWhatItCannotStamp) {
    std::mutex mutex;
    std::size_t errors = 0;
    OnLogMessage([&](const std::string&, const std::string& text) {
        const std::lock_guard<std::mutex> guard(mutex);
        errors +=
            text.find("ERROR !!") != std::string::npos || text.find("hutdown") != std::string::npos ? 1U : 0U;
    });
    {
        sim::RtpCamera::Settings settings = Lan(3);
        settings.bFrames = 2;
        settings.lossChance = 0.05;
        Watched watched(settings);
        watched.device.At(seconds(60), [](sim::RtpCamera& camera) { camera.SetWallClock(seconds(-3'600)); });
        watched.device.At(seconds(100), [](sim::RtpCamera& camera) { camera.FallSilent(seconds(130)); });
        watched.Run(9'000);
    }
    OnLogMessage(nullptr);
    EXPECT_EQ(errors, 0U);
}

TEST(ReceiverLog, IsHeardAgainAfterLog4cppWasSetUpAnew) {
    OnLogMessage([](const std::string&, const std::string&) {});
    log4cpp::Category::getInstance("RTSP").removeAllAppenders();  // which ends ours
    std::mutex mutex;
    std::condition_variable came;
    std::size_t messages = 0;
    OnLogMessage([&](const std::string&, const std::string&) {
        const std::lock_guard<std::mutex> guard(mutex);
        ++messages;
        came.notify_all();
    });
    {
        TimeFilter filter("gate: ");
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(came.wait_for(lock, seconds(10), [&] { return messages > 0; }));
    }
    OnLogMessage(nullptr);
}

// ---- who owns what

TEST(Receiver, NoSinkRunsOnceItsStreamIsGone) {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;
    bool gone = false;
    bool goneMeanwhile = false;
    Camera camera("gate");
    auto stream = camera.AddStream("video", Watched::H264(), [&](const Frame&) {
        std::unique_lock<std::mutex> lock(mutex);
        entered = true;
        changed.notify_all();
        goneMeanwhile = changed.wait_for(lock, milliseconds(100), [&] { return gone; });
    });
    const TimePoint start(Ticks(17'000'000'000'000'000));
    for (const std::uint16_t seq :
         {std::uint16_t{1}, std::uint16_t{3}}) {  // the second one waits for a third
        const auto bytes = sim::RtpCamera::RtpBytes(96, false, seq, seq, kSsrc, {0x41});
        stream->FeedRtp(bytes.data(), bytes.size(), start);
    }
    std::thread polling([&] { camera.Poll(start + seconds(1)); });
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return entered; });
    }
    stream.reset();
    {
        const std::lock_guard<std::mutex> guard(mutex);
        gone = true;
        changed.notify_all();
    }
    polling.join();
    EXPECT_FALSE(goneMeanwhile);
}

// ---- any setting

TEST(ReceiverHostile, AnySettings) {
    for (const milliseconds latency : {(milliseconds::max)(), (milliseconds::min)(), milliseconds(-30)}) {
        for (const microseconds least : {(microseconds::max)(), (microseconds::min)()}) {
            Settings settings;
            settings.meanLatency = latency;
            settings.leastLatency = least;
            settings.cameraDelay = {least, (microseconds::max)()};
            settings.packetTimeOut = latency;
            settings.reportTimeOut = latency;
            settings.requireReports = true;
            settings.expectedDifference = latency;
            settings.estimator = least.count() > 0 ? Estimator::kMedian : Estimator::kFloorLine;
            ByHand t(settings);
            t.stream->FeedReport(kSsrc, t.Ntp(), t.rtp, t.now);
            t.Frames(60);
            t.camera.SetMeanLatency((milliseconds::min)());
            t.camera.SetLeastLatency((microseconds::min)());
            t.Frames(60);
            t.camera.SetMeanLatency((milliseconds::max)());
            t.Frames(2);
            t.stream->Restarted();
            t.Frames(2);
            t.camera.Poll();
            t.stream->Map(t.rtp);
            t.stream->Snapshot();
            ASSERT_EQ(t.frames.size(), 124U);
            for (std::size_t i = 0; i < t.frames.size(); ++i) {
                ASSERT_LE(t.frames[i].captured_host, t.frames[i].arrived_host) << i;
                ASSERT_TRUE(i == 0 || t.frames[i].pts > t.frames[i - 1].pts) << i;
            }
        }
    }
}

// ---- any bytes, any thread

TEST(ReceiverHostile, AnyBytesFromSeveralThreads) {
    Settings settings;
    settings.cameraDelay = {milliseconds(10), milliseconds(40)};
    settings.requireReports = true;
    std::atomic<std::uint64_t> heard{0};
    Camera camera("gate", settings, [&](const Event&) { ++heard; });
    std::atomic<std::uint64_t> frames{0};
    std::vector<std::thread> threads;
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([&, seed] {
            sim::Random random(seed);
            Format format = Watched::H264();
            format.payloadType = -1;
            std::shared_ptr<Stream> stream;
            for (int i = 0; i < 20'000; ++i) {
                if (i % 5'000 == 0)
                    stream = camera.AddStream("video", format, [&](const Frame&) { ++frames; });
                const bool wild = random.Below(8) == 0;
                const TimePoint arrival = wild ? TimePoint(Ticks(static_cast<std::int64_t>(random.Next())))
                                               : TimePoint(Ticks(17'000'000'000'000'000 + i * 10'000));
                std::vector<std::uint8_t> bytes(random.Below(80));
                for (std::uint8_t& byte : bytes)
                    byte = static_cast<std::uint8_t>(random.Next());
                if (!wild)
                    bytes = sim::RtpCamera::RtpBytes(
                        96, random.Below(3) == 0, static_cast<std::uint16_t>(i),
                        static_cast<std::uint32_t>(random.Below(4) * 900'000 + static_cast<std::uint64_t>(i)),
                        static_cast<std::uint32_t>(random.Below(2)), bytes);
                switch (random.Below(10)) {
                case 0: stream->FeedRtcp(bytes.data(), bytes.size(), arrival); break;
                case 1:
                    stream->FeedReport(static_cast<std::uint32_t>(random.Below(2)), random.Next(),
                                       static_cast<std::uint32_t>(random.Next()), arrival);
                    break;
                case 2: {
                    Frame frame;
                    frame.rtp_ts = static_cast<std::uint32_t>(random.Next());
                    frame.ssrc = static_cast<std::uint32_t>(random.Below(2));
                    frame.arrived_host = arrival;
                    frame.packets = static_cast<std::uint32_t>(random.Next());
                    frame.bytes = random.Next();
                    stream->FeedFrame(frame);
                    break;
                }
                case 3:
                    if (i % 50 == 0)
                        stream->Restarted();
                    stream->Map(static_cast<std::uint32_t>(random.Next()));
                    stream->Find(static_cast<std::uint32_t>(random.Next()));
                    break;
                case 4:
                    if (i % 20 == 0) {
                        stream->Snapshot();
                        camera.Poll(arrival);
                        camera.SetMeanLatency(milliseconds(static_cast<std::int64_t>(random.Below(100))));
                    }
                    stream->Flush();
                    break;
                default: stream->FeedRtp(bytes.data(), bytes.size(), arrival);
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(frames, 0U);
}

}  // namespace
}  // namespace camclock::receiver
