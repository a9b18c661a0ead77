#include "receiver/Watched.h"

#include <set>

namespace camclock::receiver {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint64_t kFrames = 8'000;
constexpr double kGood_ms = 1.15;

sim::RtpCamera::Settings Lan(std::uint64_t seed = 1) {
    sim::RtpCamera::Settings settings;
    settings.seed = seed;
    return settings;
}

TEST(ReceiverScenario, NothingHappens) {
    Watched watched(Lan());
    watched.Run(kFrames);
    EXPECT_EQ(watched.frames.size(), kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_GT(watched.Count(Trust::kGood), 7'900U);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_NEAR(watched.PtsBeside_ms(), 320'000 * 20e-6, 50.0);
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
    const Statistics statistics = watched.stream->Snapshot();
    EXPECT_EQ(statistics.frames, kFrames);
    EXPECT_EQ(statistics.packets, watched.fedPackets);
    EXPECT_EQ(statistics.lost + statistics.late + statistics.malformed + statistics.foreign +
                  statistics.implausible,
              0U);
    EXPECT_NEAR(statistics.skew_ppm, 20.0, 1.0);
}

// ---- the camera's clock is set

struct ClockCase {
    const char* name;
    Ticks by;
    bool stampsToo;
};

class ReceiverClockSet : public testing::TestWithParam<ClockCase> {};

TEST_P(ReceiverClockSet, NoGoodFrameIsWrong) {
    sim::RtpCamera::Settings settings = Lan(7);
    settings.rtpFromWallClock = GetParam().stampsToo;
    Watched watched(settings);
    watched.device.At(seconds(160), [](sim::RtpCamera& camera) { camera.SetWallClock(GetParam().by); });
    watched.Run(kFrames);
    EXPECT_EQ(watched.frames.size(), kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_GT(watched.Count(Trust::kGood), 7'600U);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0 + 320'000 * 20e-6);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_EQ(watched.Count(Event::Kind::kClockStepped), GetParam().stampsToo ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(
    By, ReceiverClockSet,
    testing::Values(
        ClockCase{"OneSecond", seconds(1), false}, ClockCase{"OneSecondBack", seconds(-1), false},
        ClockCase{"HalfAMinute", seconds(30), false}, ClockCase{"HalfAMinuteBack", seconds(-30), false},
        ClockCase{"AnHour", hours(1), false}, ClockCase{"AnHourBack", hours(-1), false},
        ClockCase{"ADay", hours(24), false}, ClockCase{"ADayBack", hours(-24), false},
        ClockCase{"OneSecondWithStamps", seconds(1), true},
        ClockCase{"OneSecondBackWithStamps", seconds(-1), true},
        ClockCase{"HalfAMinuteWithStamps", seconds(30), true},
        ClockCase{"HalfAMinuteBackWithStamps", seconds(-30), true},
        ClockCase{"AnHourWithStamps", hours(1), true}, ClockCase{"AnHourBackWithStamps", hours(-1), true},
        ClockCase{"ADayWithStamps", hours(24), true}, ClockCase{"ADayBackWithStamps", hours(-24), true}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(ReceiverScenario, AStepTooSmallForAnEpochIsNotGoodEither) {
    for (const milliseconds by :
         {milliseconds(30), milliseconds(250), milliseconds(-250), milliseconds(-480)}) {
        for (const bool stampsToo : {false, true}) {
            sim::RtpCamera::Settings settings = Lan(8);
            settings.rtpFromWallClock = stampsToo;
            Watched watched(settings);
            watched.device.At(seconds(160), [by](sim::RtpCamera& camera) { camera.SetWallClock(by); });
            watched.Run(kFrames);
            EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
            EXPECT_LE(watched.WorstGood_ms(), 10.0) << by.count() << " ms, stamps too: " << stampsToo;
            EXPECT_GT(watched.Count(Trust::kGood), 7'600U);
        }
    }
}

// ---- it falls silent

class ReceiverSilence : public testing::TestWithParam<int> {};

TEST_P(ReceiverSilence, NoGoodFrameIsWrong) {
    const seconds silence(GetParam());
    Watched watched(Lan(11));
    watched.device.At(seconds(100), [&](sim::RtpCamera& camera) { camera.FallSilent(silence); });
    const auto frames = static_cast<std::uint64_t>(25 * silence.count()) + kFrames;
    watched.Run(frames);
    EXPECT_EQ(watched.frames.size(), kFrames);
    const bool withinAnEpoch = silence <= seconds(100);
    EXPECT_LE(watched.WorstGood_ms(),
              kGood_ms + (withinAnEpoch ? 20e-3 * static_cast<double>(silence.count()) : 0.0));
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0 + 320'000 * 20e-6);
    EXPECT_EQ(watched.frames.back().frame.epoch, withinAnEpoch ? 1U : 2U);
    EXPECT_EQ(watched.Count(Event::Kind::kGap), 1U);
    EXPECT_EQ(watched.Count(Event::Kind::kSilent), 1U);
}

INSTANTIATE_TEST_SUITE_P(Of, ReceiverSilence, testing::Values(60, 119, 121, 300, 7'200));

TEST(ReceiverScenario, FramesAfterASilenceSettleAgain) {
    Watched watched(Lan(12));
    watched.device.At(seconds(100), [](sim::RtpCamera& camera) { camera.FallSilent(seconds(11)); });
    watched.Run(25 * 120);
    for (std::size_t i = 2'500; i < 2'526; ++i)
        EXPECT_EQ(watched.frames[i].frame.trust, Trust::kSettling) << i;
    EXPECT_EQ(watched.frames[2'526].frame.trust, Trust::kGood);
}

TEST(ReceiverScenario, StampsSetDuringASilenceBeginAnEpoch) {
    for (const seconds by : {seconds(40), seconds(1), seconds(-3)}) {
        Watched watched(Lan(12));
        watched.device.At(seconds(100), [by](sim::RtpCamera& camera) {
            camera.FallSilent(seconds(50));
            camera.SetRtpClock(by);
        });
        watched.Run(kFrames);
        EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
        EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
        EXPECT_TRUE(watched.PtsGrows());
        EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0);
    }
}

// ---- its source changes

TEST(ReceiverScenario, AnotherSourceIsBelievedAfterASecond) {
    Watched watched(Lan(13));
    watched.device.At(seconds(160), [](sim::RtpCamera& camera) { camera.ChangeSource(); });
    watched.Run(kFrames);
    EXPECT_EQ(watched.frames.size(), kFrames) << "its packets are kept meanwhile";
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0 + 320'000 * 20e-6);
    EXPECT_EQ(watched.Count(Event::Kind::kSourceChanged), 1U);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_EQ(watched.stream->Snapshot().foreign, 0U);
    EXPECT_EQ(watched.stream->Snapshot().packets, watched.fedPackets);
}

class ReceiverReconnect : public testing::TestWithParam<int> {};

TEST_P(ReceiverReconnect, NoGoodFrameIsWrong) {
    const seconds away(GetParam());
    Watched watched(Lan(14));
    bool restarted = false;
    watched.device.At(seconds(130), [&](sim::RtpCamera& camera) {
        camera.FallSilent(away);
        camera.ChangeSource();
        camera.SetWallClock(hours(-24));
    });
    watched.Run(kFrames + static_cast<std::uint64_t>(25 * away.count()), [&](const sim::Datagram& datagram) {
        if (!restarted && datagram.arrived_host >= watched.device.GetSettings().start + seconds(130) + away) {
            restarted = true;
            watched.stream->Restarted();
        }
    });
    EXPECT_EQ(watched.frames.size(), kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0 + 320'000 * 20e-6);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
}

INSTANTIATE_TEST_SUITE_P(After, ReceiverReconnect, testing::Values(1, 130, 3'600, 86'400));

TEST(ReceiverScenario, ByeLetsTheNextSourceInAtOnce) {
    Watched watched(Lan(15));
    watched.Run(1'000);
    const std::vector<std::uint8_t> bye = sim::RtpCamera::ByeBytes(watched.device.Ssrc());
    watched.stream->FeedRtcp(bye.data(), bye.size(), watched.frames.back().frame.arrived_host);
    watched.device.ChangeSource();
    watched.Run(1'003);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_EQ(watched.stream->Snapshot().foreign, 0U);
}

TEST(ReceiverScenario, AHundredReconnectsKeepThePresentationTime) {
    sim::RtpCamera::Settings device = Lan(14);
    device.skew_ppm = 0.0;
    device.firstReport = Ticks(1'000'000);
    device.reportInterval = Ticks(10'000'000);
    Watched watched(device);
    std::uint64_t restarts = 0;
    watched.Run(10'000, [&](const sim::Datagram& datagram) {
        if (!datagram.rtcp && datagram.frame / 100 > restarts) {
            ++restarts;
            watched.stream->Restarted();
            watched.device.ChangeSource();
        }
    });
    EXPECT_GE(watched.frames.back().frame.epoch, 100U);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_LE(std::abs(watched.PtsBeside_ms()), 50.0);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
}

// ---- foreign packets

TEST(ReceiverScenario, AStrayPacketEveryFiveSecondsChangesNothing) {
    Watched plain(Lan(16));
    plain.Run(kFrames);
    const std::vector<Seen> expected = plain.frames;

    Watched watched(Lan(16));
    std::uint64_t strays = 0;
    std::uint16_t seq = 0;
    watched.Run(kFrames, [&](const sim::Datagram& datagram) {
        if (datagram.rtcp || datagram.frame < 10 || datagram.frame / 125 < strays)
            return;
        ++strays;
        const auto bytes = sim::RtpCamera::RtpBytes(96, true, seq++, 4711, 0xBAD, {0x65, 0x88});
        watched.stream->FeedRtp(bytes.data(), bytes.size(), datagram.arrived_host);
    });
    ASSERT_EQ(watched.frames.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(watched.frames[i].frame.captured_host, expected[i].frame.captured_host) << i;
        ASSERT_EQ(watched.frames[i].frame.pts, expected[i].frame.pts) << i;
    }
    EXPECT_EQ(watched.stream->Snapshot().foreign, strays);
    EXPECT_EQ(strays, kFrames / 125);
}

TEST(ReceiverScenario, AStrayPacketBeforeTheFirstIsNoSourceForLong) {
    Watched watched(Lan(16));
    const auto stray = sim::RtpCamera::RtpBytes(96, true, 7, 4711, 0xBAD, {0x65, 0x88});
    watched.stream->FeedRtp(stray.data(), stray.size(), watched.device.GetSettings().start);
    watched.Run(100);
    ASSERT_EQ(watched.frames.size(), 101U);
    EXPECT_EQ(watched.frames[1].frame.packets, 4U);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
}

TEST(ReceiverScenario, ASlowSourceIsBelievedToo) {
    sim::RtpCamera::Settings settings = Lan(16);
    settings.framePeriod = Ticks(30'000'000);  // a frame in 3 s
    settings.packetsOfKeyFrame = 1;
    settings.packetsOfFrame = 1;
    Watched watched(settings);
    watched.device.At(seconds(160), [](sim::RtpCamera& camera) { camera.ChangeSource(); });
    watched.Run(200);
    EXPECT_EQ(watched.frames.size(), 200U) << "its packets are kept meanwhile";
    EXPECT_EQ(watched.Count(Event::Kind::kSourceChanged), 1U);
    EXPECT_EQ(watched.stream->Snapshot().packets, watched.fedPackets);
}

TEST(ReceiverScenario, StraysBetweenItsPacketsDoNotHideAnotherSource) {
    sim::RtpCamera::Settings settings = Lan(16);
    settings.packetsOfKeyFrame = 1;
    settings.packetsOfFrame = 1;
    Watched watched(settings);
    sim::Random random(20);
    std::uint64_t strays = 0;
    watched.device.At(seconds(20), [](sim::RtpCamera& camera) { camera.ChangeSource(); });
    watched.Run(1'000, [&](const sim::Datagram& datagram) {
        for (int i = 0; datagram.frame > 0 && i < 20; ++i) {
            const auto bytes =
                sim::RtpCamera::RtpBytes(96, true, static_cast<std::uint16_t>(random.Next()), 4711,
                                         static_cast<std::uint32_t>(random.Next()), {0x65, 0x88});
            watched.stream->FeedRtp(bytes.data(), bytes.size(), datagram.arrived_host);
            ++strays;
        }
    });
    EXPECT_EQ(watched.frames.size(), 1'000U);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_EQ(watched.stream->Snapshot().packets, watched.fedPackets);
    EXPECT_GE(watched.stream->Snapshot().foreign, strays);
}

TEST(ReceiverScenario, OfTwoSourcesInTurnTheFirstStays) {
    Watched watched(Lan(17));
    sim::RtpCamera::Settings otherSettings = Lan(18);
    otherSettings.ssrc = 0xBAD;
    sim::RtpCamera other(otherSettings);
    std::uint64_t foreign = 0;
    watched.Run(kFrames, [&](const sim::Datagram& ours) {
        if (ours.frame == 0)
            return;
        const sim::Datagram datagram = other.Next();
        ++foreign;
        if (datagram.rtcp)
            watched.stream->FeedRtcp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
        else
            watched.stream->FeedRtp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
    });
    EXPECT_EQ(watched.frames.size(), kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
    EXPECT_EQ(watched.stream->Snapshot().foreign, foreign);
}

TEST(ReceiverScenario, TwentyRandomPacketsAFrameChangeNothing) {
    Watched watched(Lan(19));
    sim::Random random(20);
    std::uint64_t sent = 0;
    std::uint64_t frame = ~std::uint64_t{0};
    watched.Run(2'000, [&](const sim::Datagram& datagram) {
        if (datagram.rtcp || datagram.frame == 0 || datagram.frame == frame)
            return;
        frame = datagram.frame;
        for (int i = 0; i < 20; ++i) {
            std::vector<std::uint8_t> bytes(random.Below(64));
            for (std::uint8_t& byte : bytes)
                byte = static_cast<std::uint8_t>(random.Next());
            if (bytes.size() >= 2 && i % 2 == 0) {
                bytes[0] = 0x80;
                bytes[1] = 96;
            }
            ++sent;
            watched.stream->FeedRtp(bytes.data(), bytes.size(), datagram.arrived_host);
        }
    });
    EXPECT_EQ(watched.frames.size(), 2'000U);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
    const Statistics statistics = watched.stream->Snapshot();
    EXPECT_EQ(statistics.foreign + statistics.malformed, sent);
    EXPECT_EQ(statistics.packets, watched.fedPackets);
}

// ---- reports that say nothing

TEST(ReceiverScenario, NtpZeroIsNoTime) {
    Watched watched(Lan(21));
    watched.device.TellNtp([](std::uint64_t) { return std::uint64_t{0}; });
    watched.Run(kFrames);
    EXPECT_EQ(watched.Count(Trust::kArrivalOnly), kFrames);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_EQ(watched.stream->Snapshot().reports, 0U);
    EXPECT_EQ(watched.stream->Snapshot().implausible, 64U);
    EXPECT_EQ(watched.Count(Event::Kind::kImplausibleReport), 1U);
    EXPECT_TRUE(watched.PtsGrows());
}

TEST(ReceiverScenario, RandomNtpIsNeverGoodAndWrong) {
    Watched watched(Lan(22));
    sim::Random random(23);
    watched.device.TellNtp([&](std::uint64_t) { return random.Next(); });
    watched.Run(kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_GT(watched.stream->Snapshot().implausible, 50U);
    EXPECT_TRUE(watched.PtsGrows());
}

TEST(ReceiverScenario, AMinuteOf1970IsNeverGoodAndWrong) {
    Watched watched(Lan(24));
    watched.device.TellNtp([](std::uint64_t right) { return right - (std::uint64_t{1'700'000'000} << 32); });
    watched.device.At(seconds(60), [](sim::RtpCamera& camera) { camera.TellNtp(nullptr); });
    watched.Run(kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_LE(watched.Worst_ms(), 30.0);
    EXPECT_EQ(watched.Count(Event::Kind::kClockStepped), 1U);
    EXPECT_EQ(watched.stream->Snapshot().implausible, 2U);
    EXPECT_EQ(watched.frames.back().frame.epoch, 2U);
    EXPECT_TRUE(watched.PtsGrows());
}

TEST(ReceiverScenario, WithoutReportsNothingIsTrusted) {
    sim::RtpCamera::Settings settings = Lan(25);
    settings.reportInterval = Ticks(0);
    Watched watched(settings);
    watched.Run(kFrames);
    EXPECT_EQ(watched.Count(Trust::kArrivalOnly), kFrames);
    for (const Seen& seen : watched.frames) {
        ASSERT_EQ(seen.frame.captured_host, seen.frame.arrived_host - milliseconds(28));
        ASSERT_EQ(seen.frame.captured_cam, seen.frame.arrived_host);
    }
}

// ---- order

TEST(ReceiverScenario, BFramesAreAsGoodAsOthers) {
    sim::RtpCamera::Settings settings = Lan(26);
    settings.bFrames = 2;
    Watched watched(settings);
    watched.Run(kFrames);
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_GT(watched.Count(Trust::kGood), 7'800U);
    std::vector<Seen> shown = watched.frames;
    std::sort(shown.begin(), shown.end(),
              [](const Seen& a, const Seen& b) { return a.captured_host < b.captured_host; });
    for (std::size_t i = 1; i < shown.size(); ++i)
        ASSERT_LT(shown[i - 1].frame.pts, shown[i].frame.pts) << i;
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
}

TEST(ReceiverScenario, LossReorderingAndDoublesAreCountedExactly) {
    sim::RtpCamera::Settings settings = Lan(27);
    settings.lossChance = 0.1;
    settings.duplicateChance = 0.05;
    settings.reorder = 5;
    Watched watched(settings);
    std::map<std::uint64_t, std::set<std::uint16_t>> packets;  // by frame
    std::uint64_t doubled = 0;
    watched.Run(kFrames, [&](const sim::Datagram& datagram) {
        if (datagram.rtcp)
            return;
        const auto seq = static_cast<std::uint16_t>(datagram.bytes[2] << 8 | datagram.bytes[3]);
        doubled += packets[datagram.frame].insert(seq).second ? 0U : 1U;
    });
    EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    EXPECT_TRUE(watched.PtsGrows());
    EXPECT_EQ(watched.frames.size(), packets.size());
    const Statistics statistics = watched.stream->Snapshot();
    EXPECT_EQ(statistics.packets, watched.fedPackets - doubled);
    EXPECT_EQ(statistics.late, doubled);
    EXPECT_EQ(watched.frames.back().frame.epoch, 1U);
}

// ---- several streams

TEST(ReceiverScenario, AStreamThatJoinsLaterSharesTheOrigin) {
    for (const seconds later : {seconds(150), seconds(10'800)}) {
        sim::RtpCamera::Settings settings = Lan(28);
        settings.skew_ppm = 0.0;
        Watched watched(settings);
        sim::RtpCamera::Settings soundSettings = settings;
        soundSettings.seed = 29;
        soundSettings.rate_Hz = 48'000;
        soundSettings.framePeriod = Ticks(200'000);
        soundSettings.payloadType = 97;
        soundSettings.packetsOfFrame = 1;
        soundSettings.packetsOfKeyFrame = 1;
        sim::RtpCamera sound(soundSettings);
        Format format;
        format.media = "audio";
        format.clockRate_Hz = 48'000;
        format.payloadType = 97;
        std::vector<Seen> heard;
        std::map<std::uint32_t, TimePoint> truth;
        std::shared_ptr<Stream> stream;
        sim::Datagram next = sound.Next();
        watched.Run(static_cast<std::uint64_t>(25 * later.count()) + 2'000,
                    [&](const sim::Datagram& datagram) {
                        if (!stream && datagram.arrived_host > settings.start + later)
                            stream = watched.camera.AddStream("sound", format, [&](const Frame& frame) {
                                heard.push_back({frame, truth[frame.rtp_ts]});
                            });
                        for (; next.arrived_host <= datagram.arrived_host; next = sound.Next()) {
                            if (!stream)
                                continue;
                            truth[next.rtp_ts] = next.captured_host;
                            if (next.rtcp)
                                stream->FeedRtcp(next.bytes.data(), next.bytes.size(), next.arrived_host);
                            else
                                stream->FeedRtp(next.bytes.data(), next.bytes.size(), next.arrived_host);
                        }
                    });
        ASSERT_GT(heard.size(), 3'000U);
        double worst = 0.0;
        for (const Seen& seen : heard) {
            if (seen.frame.trust == Trust::kGood)
                worst = std::max(worst, std::abs(seen.Error_ms()));
        }
        EXPECT_LE(worst, kGood_ms);
        // The same instant, the same stamp.
        const Seen& picture = watched.frames.back();
        const Seen& tone = heard.back();
        const double apart_ms =
            static_cast<double>((picture.captured_host - tone.captured_host).count()) / 1e4;
        const double stamps_ms =
            static_cast<double>(picture.frame.pts) / 90.0 - static_cast<double>(tone.frame.pts) / 48.0;
        EXPECT_NEAR(stamps_ms, apart_ms, 7.0);
        EXPECT_LE(watched.WorstGood_ms(), kGood_ms);
    }
}

// ---- the floor line as the answer

TEST(ReceiverScenario, TheFloorLineAnswersWithItsUncertainty) {
    const sim::RtpCamera::Settings device = Lan(30);
    Settings settings = Watched::For(device);
    settings.leastLatency = std::chrono::microseconds(27'860);
    settings.estimator = Estimator::kFloorLine;
    Watched watched(device, settings);
    watched.Run(kFrames);
    std::size_t inside = 0;
    std::vector<double> errors;
    for (std::size_t i = 750; i < watched.frames.size(); ++i) {
        const Seen& seen = watched.frames[i];
        ASSERT_EQ(seen.frame.captured_host, seen.frame.precise_host);
        ASSERT_TRUE(seen.frame.uncertainty);
        errors.push_back(std::abs(seen.Error_ms()));
        inside += errors.back() <= static_cast<double>(seen.frame.uncertainty->count()) / 1e3 ? 1U : 0U;
    }
    std::sort(errors.begin(), errors.end());
    EXPECT_LE(errors[errors.size() * 99 / 100], 0.05);
    EXPECT_GE(static_cast<double>(inside) / static_cast<double>(errors.size()), 0.99);
    EXPECT_EQ(watched.frames[0].frame.trust, Trust::kSettling);
    EXPECT_EQ(watched.frames.back().frame.trust, Trust::kGood);
}

TEST(ReceiverScenario, TheFloorLineIsNotGoodBehindStampsThatWereSet) {
    for (const seconds by : {seconds(-30), seconds(-1), seconds(1), seconds(30)}) {
        sim::RtpCamera::Settings device = Lan(32);
        device.rtpFromWallClock = true;
        Settings settings = Watched::For(device);
        settings.leastLatency = std::chrono::microseconds(27'860);
        settings.estimator = Estimator::kFloorLine;
        Watched watched(device, settings);
        watched.device.At(seconds(100), [by](sim::RtpCamera& camera) { camera.SetWallClock(by); });
        watched.Run(4'000);
        EXPECT_LE(watched.WorstGood_ms(), 0.5) << by.count();
        EXPECT_LE(watched.Worst_ms(), 30.0);
        EXPECT_GT(watched.Count(Trust::kGood), 3'900U);
    }
}

TEST(ReceiverScenario, TheFloorLineIsNotGoodWhereAFrameWasLostWhenTheStampsWereSet) {
    for (const seconds by : {seconds(-30), seconds(1), seconds(3'600)}) {
        const sim::RtpCamera::Settings device = Lan(33);
        Settings settings = Watched::For(device);
        settings.leastLatency = std::chrono::microseconds(27'860);
        settings.estimator = Estimator::kFloorLine;
        Watched watched(device, settings);
        watched.device.At(seconds(100), [by](sim::RtpCamera& camera) {
            camera.FallSilent(milliseconds(30));
            camera.SetRtpClock(by);
        });
        watched.Run(4'000);
        EXPECT_EQ(watched.frames.size(), 3'999U);
        EXPECT_LE(watched.WorstGood_ms(), 0.5) << by.count();
        EXPECT_GT(watched.Count(Trust::kGood), 3'900U);
    }
}

TEST(ReceiverScenario, TheFloorLineNeedsNoReports) {
    sim::RtpCamera::Settings device = Lan(31);
    device.reportInterval = Ticks(0);
    Settings settings = Watched::For(device);
    settings.leastLatency = std::chrono::microseconds(27'860);
    settings.estimator = Estimator::kFloorLine;
    settings.cameraDelay = {milliseconds(20), milliseconds(40)};
    Watched watched(device, settings);
    watched.Run(2'000);
    EXPECT_EQ(watched.frames.back().frame.trust, Trust::kGood);
    EXPECT_LE(watched.WorstGood_ms(), 0.5);
    for (const Seen& seen : watched.frames) {
        ASSERT_TRUE(seen.frame.bound);
        ASSERT_LE(seen.frame.bound->first, seen.captured_host);
        ASSERT_GE(seen.frame.bound->second, seen.captured_host);
        ASSERT_EQ(seen.frame.captured_cam, seen.frame.arrived_host);
    }
}

}  // namespace
}  // namespace camclock::receiver
