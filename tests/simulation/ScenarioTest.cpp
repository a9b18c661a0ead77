#include "simulation/Receiver.h"

// The whole pipeline against a camera whose truth is known, one scenario a test, each with a bound on the
// error. The camera's clock is an hour, two minutes and 3.5 s behind the host's unless a scenario says
// otherwise; errors are taken from the tenth second on, when the window of 51 latencies is full.

namespace camclock::test {
namespace {

using namespace std::chrono_literals;

constexpr Ticks kBehind{-37'235'000'000};  // 1 h 2 min 3.5 s
constexpr auto kSettled = 10s;
constexpr auto kEnd = 60s;

SimulatedCamera::Settings Camera(const NetworkModel& network = kBusyLan) {
    SimulatedCamera::Settings settings;
    settings.seed = 20'260'115;
    settings.offset = kBehind;
    settings.network = network;
    return settings;
}

std::vector<Call> RunSettled(Receiver& receiver, const std::string& what) {
    receiver.RunUntil(kSettled);
    const std::vector<Call> calls = receiver.RunUntil(kEnd);
    PrintMeasured(what + " (" + receiver.Camera().Describe() + ")", Summarise(calls));
    return calls;
}

TEST(SimulatedScenario, ConstantOffset) {
    for (const std::int64_t offset :
         {kBehind.count(), -kBehind.count(), std::int64_t{0}, std::int64_t{-15'000}}) {
        SimulatedCamera::Settings settings = Camera();
        settings.offset = Ticks(offset);
        Receiver receiver(settings);
        const Errors errors = Summarise(RunSettled(receiver, "offset"));
        EXPECT_EQ(errors.count, 1'250U);
        EXPECT_LE(errors.p50, 1.2);
        EXPECT_LE(errors.p99, 2.0);
        EXPECT_LE(errors.worst, 2.5);
    }
}

// The camera's clock and its RTP clock are one: D follows with the lag of half a window, one second.
TEST(SimulatedScenario, DriftOfTheCamerasClock) {
    for (const double drift_ppm : {0.0, 20.0, 100.0, -100.0}) {
        SimulatedCamera::Settings settings = Camera();
        settings.drift_ppm = drift_ppm;
        Receiver receiver(settings);
        receiver.RunUntil(kSettled);
        const std::vector<Call> calls = receiver.RunUntil(300s);
        const Errors errors = Summarise(calls);
        PrintMeasured("drift " + std::to_string(drift_ppm) + " ppm", errors);
        EXPECT_LE(errors.p50, 1.2);
        EXPECT_LE(errors.p99, 2.0);
        EXPECT_LE(errors.worst, 2.5);
        EXPECT_NEAR(static_cast<double>(calls.back().D_ms),
                    receiver.Camera().TrueD_ms(calls.back().capture_host), 2.0);
    }
}

TEST(SimulatedScenario, Jitter) {
    for (const NetworkModel& network : {NetworkModel{"no jitter", Ticks(40'000)},
                                        NetworkModel{"jitter of 20 ms", Ticks(40'000), Ticks(200'000)}}) {
        Receiver receiver(Camera(network));
        const Errors errors = Summarise(RunSettled(receiver, "jitter"));
        const double mean_ms = ToMilliseconds(network.queueing);
        EXPECT_LE(errors.p50, 1.1 + 0.15 * mean_ms);
        EXPECT_LE(errors.p99, 1.1 + 0.50 * mean_ms);
    }
}

// Three times a minute the network stands still for most of a second and then lets go of everything at once.
TEST(SimulatedScenario, Bursts) {
    SimulatedCamera::Settings settings = Camera();
    settings.stallEvery = Ticks(200'000'000);
    settings.stallLength = Ticks(8'000'000);
    Receiver receiver(settings);
    const std::vector<Call> calls = RunSettled(receiver, "bursts of 0.8 s");
    const Errors errors = Summarise(calls);
    double longestLatency_ms = 0.0;
    for (const Call& call : calls)
        longestLatency_ms = (std::max)(longestLatency_ms, call.Latency_ms());
    EXPECT_GE(longestLatency_ms, 790.0) << "no burst, no test";
    EXPECT_LE(errors.p99, 3.5);
    EXPECT_LE(errors.worst, 6.0);
}

TEST(SimulatedScenario, Loss) {
    SimulatedCamera::Settings settings = Camera();
    settings.lossChance = 0.3;
    Receiver receiver(settings);
    const std::vector<Call> calls = RunSettled(receiver, "loss of 30 %");
    const Errors errors = Summarise(calls);
    EXPECT_LT(errors.count, 1'000U);
    EXPECT_GT(errors.count, 750U);
    EXPECT_LE(errors.p99, 2.0);
    EXPECT_LE(errors.worst, 2.5);
}

// A frame that was overtaken is given the time of the one that overtook it: its own error is the distance of
// the two.
TEST(SimulatedScenario, Reordering) {
    SimulatedCamera::Settings settings =
        Camera(NetworkModel{"overtaking", Ticks(20'000), Ticks(5'000), 0.05, Ticks(600'000)});
    settings.delivery = Delivery::kAsTheyArrive;
    Receiver receiver(settings);
    const std::vector<Call> calls = RunSettled(receiver, "overtaking");
    std::vector<Call> inTurn;
    std::vector<Call> overtaken;
    TimePoint latest = calls.front().capture_host;
    for (const Call& call : calls) {
        (call.capture_host < latest ? overtaken : inTurn).push_back(call);
        latest = (std::max)(latest, call.capture_host);
    }
    PrintMeasured("  frames in turn", Summarise(inTurn));
    PrintMeasured("  overtaken frames", Summarise(overtaken));
    EXPECT_GT(overtaken.size(), 40U);
    EXPECT_LE(Summarise(inTurn).worst, 1.5);
    EXPECT_LE(Summarise(overtaken).worst, 41.5);
}

// A report moves the mapping: 26 calls pass until the new latencies are the majority of the window's 51. `D`
// is then the median of a window that is still half old, which is the largest (clock set forward) or smallest
// (set back) of the new latencies; it has settled when all 51 are new.
struct AfterJump {
    std::vector<Call> old;       ///< calls 1 to 26
    std::vector<Call> settling;  ///< calls 27 to 51
};

AfterJump RunJump(Receiver& receiver, std::chrono::milliseconds report, const std::string& what) {
    AfterJump calls;
    calls.old = receiver.RunUntil(report + 26 * 40ms);
    calls.settling = receiver.RunUntil(report + 51 * 40ms);
    PrintMeasured(what + ": calls 1 to 26", Summarise(calls.old));
    PrintMeasured(what + ": calls 27 to 51", Summarise(calls.settling));
    EXPECT_EQ(calls.old.size(), 26U);
    return calls;
}

// The camera's clock is set forward: what it says now lies after the reception, so the reception stands in
// for it, marked bad.
TEST(SimulatedScenario, ReportJumpsForward) {
    SimulatedCamera::Settings settings = Camera();
    settings.steps = {
        {Ticks(180'000'000), Ticks(35'000'000'000)}};  // nearly an hour, before the report at 20 s
    Receiver receiver(settings);
    receiver.RunUntil(kSettled);
    EXPECT_LE(Summarise(receiver.RunUntil(20s)).worst, 2.5);
    const AfterJump calls = RunJump(receiver, 20s, "report jumps forward");
    for (const Call& call : calls.old) {
        EXPECT_FALSE(call.trusted);
        EXPECT_EQ(call.TOC_host, call.TOR_host);
    }
    EXPECT_LE(Summarise(calls.settling).worst, 20.0);
    EXPECT_LE(Summarise(receiver.RunUntil(kEnd)).worst, 2.5);
}

// Set back: what the camera says lies before the last answer, which is given again and again, and trusted.
TEST(SimulatedScenario, ReportJumpsBack) {
    SimulatedCamera::Settings settings = Camera();
    settings.steps = {{Ticks(180'000'000), Ticks(-35'000'000'000)}};
    Receiver receiver(settings);
    receiver.RunUntil(kSettled);
    EXPECT_LE(Summarise(receiver.RunUntil(20s)).worst, 2.5);
    const AfterJump calls = RunJump(receiver, 20s, "report jumps back");
    EXPECT_LE(Summarise(calls.old).worst, 26 * 40.0 + 2.5);
    EXPECT_LE(Summarise(calls.settling).worst, 3.0);
    EXPECT_LE(Summarise(receiver.RunUntil(kEnd)).worst, 2.5);
}

// One single report is wrong by a quarter of a second: it counts until the next one, which jumps back.
TEST(SimulatedScenario, OneWrongReport) {
    SimulatedCamera::Settings settings = Camera();
    settings.steps = {{Ticks(199'000'000), Ticks(2'500'000)}, {Ticks(201'000'000), Ticks(-2'500'000)}};
    Receiver receiver(settings);
    receiver.RunUntil(20s);
    const AfterJump wrong = RunJump(receiver, 20s, "one wrong report");
    EXPECT_EQ(Summarise(wrong.old).trusted, 0.0);
    EXPECT_LE(Summarise(wrong.old).worst, 25.0) << "the latency";
    EXPECT_LE(Summarise(wrong.settling).worst, 20.0);
    EXPECT_LE(Summarise(receiver.RunUntil(25s)).worst, 2.5);
    const AfterJump right = RunJump(receiver, 25s, "the next report");
    EXPECT_EQ(Summarise(right.old).trusted, 1.0);
    EXPECT_LE(Summarise(right.old).worst, 252.5);
    EXPECT_LE(Summarise(right.settling).worst, 3.0);
    EXPECT_LE(Summarise(receiver.RunUntil(kEnd)).worst, 2.5);
}

// Without reports the answer is the reception less the mean latency; the error is the latency's own scatter.
TEST(SimulatedScenario, NoReports) {
    SimulatedCamera::Settings settings = Camera();
    settings.reportInterval = Ticks{};
    Receiver receiver(settings);
    const std::vector<Call> first = receiver.RunUntil(10ms);
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].TOC_host, first[0].TOR_host) << "D is still 0 at the first call";
    const std::vector<Call> calls = RunSettled(receiver, "no reports");
    for (const Call& call : calls)
        EXPECT_EQ(call.TOC_host, call.TOR_host - settings.network.MeanLatency());
    const Errors errors = Summarise(calls);
    EXPECT_LE(errors.p50, 1.8);
    EXPECT_LE(errors.p99, 25.0);
    EXPECT_TRUE(receiver.Stream().StablePtsIsOk());
    receiver.Filter().RequireRTCP(true);
    EXPECT_FALSE(receiver.Stream().StablePtsIsOk());
}

// The camera is away for 20 s and comes back in 1970. An application that keeps the instance gets the old
// reports' times until the first new report, then 26 calls with the old difference.
TEST(SimulatedScenario, RebootSeenByTheSameInstance) {
    SimulatedCamera::Settings settings = Camera();
    settings.reboots = {{Ticks(200'000'000), Ticks(200'000'000), TimePoint{} - settings.start}};
    settings.firstReport = Ticks(10'000'000);
    Receiver receiver(settings);
    receiver.RunUntil(kSettled);
    EXPECT_LE(Summarise(receiver.RunUntil(20s)).worst, 2.5);
    EXPECT_TRUE(receiver.Stream().PacketArrivalIsOk());
    EXPECT_EQ(receiver.RunUntil(39s).size(), 0U);
    EXPECT_FALSE(receiver.Stream().PacketArrivalIsOk());
    const Errors beforeReport = Summarise(receiver.RunUntil(41s));
    const Errors oldDifference = Summarise(receiver.RunUntil(41s + 26 * 40ms));
    const Errors after = Summarise(receiver.RunUntil(kEnd));
    PrintMeasured("reboot, same instance: until the first report", beforeReport);
    PrintMeasured("  26 calls after it", oldDifference);
    PrintMeasured("  after", after);
    EXPECT_EQ(oldDifference.count, 26U);
    EXPECT_LE(beforeReport.greatest, 50.0) << "never after the reception";
    EXPECT_LE(oldDifference.greatest, 50.0);
    EXPECT_LE(after.worst, 2.5);
}

// An application that makes a new instance for the new session loses only the first call with a report.
TEST(SimulatedScenario, RebootSeenByANewInstance) {
    SimulatedCamera::Settings settings = Camera();
    settings.reboots = {{Ticks(200'000'000), Ticks(200'000'000), TimePoint{} - settings.start}};
    settings.firstReport = Ticks(10'000'000);
    Receiver receiver(settings);
    receiver.RunUntil(39s);
    receiver.NewStream();
    const std::vector<Call> beforeReport = receiver.RunUntil(41s);
    const std::vector<Call> calls = receiver.RunUntil(kEnd);
    const Errors unsynced = Summarise({beforeReport.begin() + 1, beforeReport.end()});
    const Errors settling = Summarise({calls.begin() + 1, calls.begin() + 26});
    const Errors after = Summarise({calls.begin() + 26, calls.end()});
    PrintMeasured("reboot, new instance: until the first report", unsynced);
    PrintMeasured("  calls 2 to 26 after it", settling);
    PrintMeasured("  after", after);
    EXPECT_LE(unsynced.p50, 1.8);
    EXPECT_LE(settling.worst, 6.0);
    EXPECT_LE(after.worst, 2.5);
}

}  // namespace
}  // namespace camclock::test
