#include <camclock/TimeFilter.h>

#include "probe/MessageRecorder.h"
#include "probe/ScriptedSockets.h"
#include "support/IcmpReplies.h"
#include "support/ManualCounter.h"
#include "support/TemporaryDirectory.h"
#include "support/Ticks.h"
#include "support/WaitableList.h"
#include "timing/ProbeAcceptance.h"
#include "timing/StreamFixture.h"
#include "util/PathSeparator.h"

#include <camclock/Utilities.h>

#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <sys/resource.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <limits>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace camclock {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::MessageRecorder;
using test::ScriptedSockets;
using test::TemporaryDirectory;
using Incoming = ScriptedSockets::Incoming;
using Lines = std::vector<std::string>;

constexpr TimePoint kTen(Ticks((1'700'006'400LL + 36'000) * 10'000'000));  // 2023-11-15 10:00:00 UTC
constexpr std::uint32_t kTen_ms = 36'000'000;

class ClockProbing : public testing::Test {
protected:
    void SetUp() override { ScriptedSockets::Reset(); }

    static ScriptedSockets& Script() { return ScriptedSockets::Now(); }

    static std::size_t RequestsSent() {
        const std::lock_guard<std::recursive_mutex> guard(ScriptedSockets::Lock());
        return Script().sent.size();
    }

    /// The camera's clock stands `behind_ms` behind the host's at ten o'clock; its replies take `travel`.
    void Answer(std::int64_t behind_ms, Ticks travel = Ticks(0)) {
        const std::lock_guard<std::recursive_mutex> guard(ScriptedSockets::Lock());
        Script().answer = [this, behind_ms, travel](const Bytes& request) {
            std::uint32_t originate_ms;
            std::memcpy(&originate_ms, &request[8], sizeof originate_ms);
            counter.Advance(travel);
            return std::vector<Incoming>{
                {test::GoodReply(request, static_cast<std::uint32_t>(originate_ms - behind_ms))}};
        };
    }

    static void AnswerNothing() {
        const std::lock_guard<std::recursive_mutex> guard(ScriptedSockets::Lock());
        Script().answer = nullptr;
    }

    static const std::string& Accepted() {
        static const std::string text = "Gate: Using results of a successful ICMP probing";
        return text;
    }

    /// The messages that were written directly, without those that carry the stamp of the deferred log.
    Lines Direct() const {
        Lines direct;
        for (std::string& message : log.All()) {
            if (message.rfind("[[", 0) != 0)
                direct.push_back(std::move(message));
        }
        return direct;
    }

    test::ManualCounter counter{kTen};
    MessageRecorder log = MessageRecorder({"RTSP.TimeFilter"});
    TimeFilter filter{"Gate: "};
};

TEST_F(ClockProbing, ClosingWhatWasNeverStartedOnlyWritesItsMessages) {
    log.Drain();
    filter.CloseTimeProbing();
    EXPECT_EQ(log.All(),
              (Lines{"Gate: TimeFilter::CloseTimeProbing", "Gate: Waiting for probe tasks to finish",
                     "Gate: Done waiting for probe tasks"}));
    EXPECT_FALSE(filter.IsUsingProbe());
}

TEST_F(ClockProbing, StartAndEndWriteTheirMessages) {
    log.Drain();
    filter.UseICMP("camera", 10s, "ignored", false);
    EXPECT_TRUE(filter.IsUsingProbe());
    EXPECT_FALSE(filter.DIsLocked());
    ASSERT_TRUE(log.WaitFor("Gate: Starting timeprobe thread"));
    filter.CloseTimeProbing();
    EXPECT_FALSE(filter.IsUsingProbe());
    EXPECT_TRUE(filter.DIsLocked());
    Lines all = log.All();
    ASSERT_EQ(all.size(), 7u);
    // The thread's farewell comes after the flag was cleared, beside the messages of the one who waits.
    const auto exiting = std::find(all.begin(), all.end(), "Gate: Exiting time probe thread");
    ASSERT_NE(exiting, all.end());
    all.erase(exiting);
    EXPECT_EQ(all,
              (Lines{"Gate: Setting up ICMP: \nurl: camera\npoll interval [sec]:10\nlog path: ignored\nNot "
                     "creating log",
                     "Gate: Creating time-probe", "Gate: Starting timeprobe thread",
                     "Gate: TimeFilter::CloseTimeProbing", "Gate: Waiting for probe tasks to finish",
                     "Gate: Done waiting for probe tasks"}));
    EXPECT_EQ(RequestsSent(), 0u);
    EXPECT_EQ(Script().startUps, 1);
    EXPECT_EQ(Script().cleanUps, 1);
}

TEST_F(ClockProbing, TheIntervalIsWrittenAsAFloatingPointNumber) {
    log.Drain();
    filter.UseICMP("camera", 12'345'678s, "", false);
    EXPECT_EQ(
        log.All().at(0),
        "Gate: Setting up ICMP: \nurl: camera\npoll interval [sec]:1.23457e+07\nlog path: \nNot creating log");
}

TEST_F(ClockProbing, WithoutAnExpectedDifferenceItNeverProbes) {
    filter.UseICMP("camera", 0s, "", false);
    ASSERT_TRUE(log.WaitFor("Gate: Starting timeprobe thread"));
    ASSERT_TRUE(test::LetTicksPass(5));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 0u);
    EXPECT_EQ(RequestsSent(), 0u);
    EXPECT_FALSE(filter.DIsLocked());
}

TEST_F(ClockProbing, TheFirstExpectedDifferenceStartsTheFirstProbing) {
    Answer(1'500, 5ms);
    filter.SetD(7ms);
    filter.UseICMP("camera", 3'600s, "", false);
    ASSERT_TRUE(log.WaitFor("Gate: Starting timeprobe thread"));
    log.Drain();
    filter.CheckPollDifference(1'000ms);
    ASSERT_TRUE(log.WaitFor(
        "Gate: 1502 [ms] will be added to remote time to get local time. Uncertainty bounds: 2.5[ms]"));
    ASSERT_TRUE(test::LetTicksPass(3));
    EXPECT_EQ(
        log.All(),
        (Lines{
            "Gate: Probing for time difference! ...", Accepted(),
            "Gate: 1502 [ms] will be added to remote time to get local time. Uncertainty bounds: 2.5[ms]"}));
    EXPECT_EQ(filter.GetD(), 1'502ms);
    EXPECT_EQ(filter.GetD_uncert(), 2'500us);
    EXPECT_TRUE(filter.DIsLocked());
    EXPECT_TRUE(filter.IsUsingProbe());
    EXPECT_EQ(RequestsSent(), 5u);
    EXPECT_EQ(Script().waits_ms, (std::vector<std::uint32_t>{300, 300, 300, 300, 300}));
}

TEST_F(ClockProbing, TheNextProbingComesAPollIntervalLater) {
    Answer(1'500);
    filter.UseICMP("camera", 60s, "", false);
    filter.CheckPollDifference(1'500ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    counter.Advance(59'999ms);
    ASSERT_TRUE(test::LetTicksPass(3));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 1u);
    Answer(2'500);
    counter.Advance(1ms);
    ASSERT_TRUE(log.WaitFor(Accepted(), 2));
    filter.CloseTimeProbing();
    EXPECT_EQ(filter.GetD(), 2'500ms);
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 2u);
}

TEST_F(ClockProbing, TheIntervalCountsFromTheBeginningOfAProbing) {
    Answer(1'500, 5ms);  // five requests: 25 ms
    filter.UseICMP("camera", 60s, "", false);
    filter.CheckPollDifference(1'500ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    counter.Advance(60s - 26ms);
    ASSERT_TRUE(test::LetTicksPass(3));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 1u);
    counter.Advance(1ms);
    EXPECT_TRUE(log.WaitFor(Accepted(), 2));
}

TEST_F(ClockProbing, PacketsTellTheExpectedDifference) {
    filter.UseICMP("nobody", 3'600s, "", false);
    const auto stream = filter.CreateNewTimeFilter();
    stream->DoTimeFiltering(true);
    stream->DoEstimation(true);
    const auto report = std::make_shared<SyncPoint>();
    report->SyncNTPmsw = test::kNtpStart;
    stream->UpdateSyncInfo(report);
    ASSERT_TRUE(test::LetTicksPass(3));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 0u) << "a report is no packet";
    // Captured at the report's time, received 1,042 ms later; 30 ms are the mean latency.
    stream->UpdateTiming(test::Packet(0, test::kStart + 1'042ms), MediaPacket::kFrameP);
    EXPECT_TRUE(log.WaitFor("Gate: Differnece estimate falls back to expected value of:1012[ms]"));
}

// The shortest of the pauses is taken, since a loaded machine stretches the others.
TEST_F(ClockProbing, FailuresFollowEachOtherTenMillisecondsApart) {
    std::vector<std::chrono::steady_clock::time_point> times;  // the probing thread's until it has exited
    Script().answer = [&times](const Bytes&) {
        times.push_back(std::chrono::steady_clock::now());
        return std::vector<Incoming>{};
    };
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CheckPollDifference(0ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    filter.CloseTimeProbing();
    ASSERT_EQ(times.size(), 55u);
    auto shortest = std::chrono::steady_clock::duration::max();
    for (std::size_t probing = 1; probing < 11; ++probing)  // from its last request to the next one's first
        shortest = (std::min)(shortest, times[5 * probing] - times[5 * probing - 1]);
    EXPECT_GE(shortest, 10ms);
    EXPECT_LT(shortest, 50ms);
}

TEST_F(ClockProbing, AnIntervalOfZeroProbesInEveryCycle) {
    Answer(1'500);
    filter.UseICMP("camera", 0s, "", false);
    filter.CheckPollDifference(1'500ms);
    EXPECT_TRUE(log.WaitFor(Accepted(), 3));
}

TEST_F(ClockProbing, AnIntervalBeyondTheClockProbesOnce) {
    Answer(1'500);
    counter.Advance(1s);  // from here the end of the clock is less than the interval away
    filter.UseICMP("camera", (std::chrono::seconds::max)(), "", false);
    filter.CheckPollDifference(1'500ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    counter.Advance(std::chrono::hours(24 * 365 * 100));
    ASSERT_TRUE(test::LetTicksPass(5));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 1u);
}

TEST_F(ClockProbing, ANegativeIntervalProbesInEveryCycle) {
    for (const std::chrono::seconds interval : {-1s, (std::chrono::seconds::min)()}) {
        log.Drain();
        Answer(1'500);
        filter.UseICMP("camera", interval, "", false);
        filter.CheckPollDifference(1'500ms);
        EXPECT_TRUE(log.WaitFor(Accepted(), 3));
        filter.CloseTimeProbing();
    }
}

TEST_F(ClockProbing, TheExpectedDifferenceTellsTheDay) {
    Answer(1'500);
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CheckPollDifference(24h * 3);
    ASSERT_TRUE(log.WaitFor(
        "Gate: 259201500 [ms] will be added to remote time to get local time. Uncertainty bounds: "
        "0[ms]"));
    EXPECT_EQ(filter.GetD(), 259'201'500ms);
}

TEST_F(ClockProbing, HalfMillisecondsAreCutTowardZero) {
    Answer(-1'501, 1ms);
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CheckPollDifference(0ms);
    ASSERT_TRUE(log.WaitFor(
        "Gate: -1500 [ms] will be added to remote time to get local time. Uncertainty bounds: 0.5[ms]"));
    EXPECT_EQ(filter.GetD(), -1'500ms);
    EXPECT_EQ(filter.GetD_uncert(), 500us);
}

TEST_F(ClockProbing, AFailureFallsBackToTheExpectedValue) {
    filter.UseICMP("camera", 3'600s, "", false);
    ASSERT_TRUE(log.WaitFor("Gate: Starting timeprobe thread"));
    log.Drain();
    filter.CheckPollDifference(-250ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    filter.CloseTimeProbing();
    Lines expected;
    for (int failure = 1; failure <= 11; ++failure) {
        expected.insert(expected.end(),
                        {"Gate: Probing for time difference! ...",
                         "Gate: Time probe estimation discarded with uncertainty larger than 30ms",
                         "Gate: Differnece estimate falls back to expected value of:-250[ms]"});
    }
    expected.insert(expected.end(),
                    {"Gate: Ten failed time probings in a row, use of ICMP timeprobe discontinued !",
                     "Gate: Exiting time probe thread", "Gate: TimeFilter::CloseTimeProbing",
                     "Gate: Waiting for probe tasks to finish", "Gate: Done waiting for probe tasks"});
    EXPECT_EQ(log.All(), expected);
    EXPECT_EQ(filter.GetD(), -250ms);
    EXPECT_EQ(filter.GetD_uncert(), 0us);
    EXPECT_EQ(RequestsSent(), 55u);
    EXPECT_FALSE(filter.IsUsingProbe());
    EXPECT_TRUE(filter.DIsLocked());
    EXPECT_EQ(Script().cleanUps, 1);
    // From now on the application's word becomes the difference at once, and without a notice.
    filter.CheckPollDifference(300ms);
    EXPECT_EQ(filter.GetD(), 300ms);
    EXPECT_EQ(log.All(), expected);
}

TEST_F(ClockProbing, AFailureKeepsTheUncertaintyAndTheLock) {
    Answer(1'500, 9ms);
    filter.UseICMP("camera", 0s, "", false);
    filter.CheckPollDifference(1'400ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    AnswerNothing();
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(filter.GetD(), 1'400ms);
    EXPECT_EQ(filter.GetD_uncert(), 4'500us);
    EXPECT_TRUE(filter.DIsLocked());
}

TEST_F(ClockProbing, ASuccessInBetweenCountsAfresh) {
    // Ten probings fail, the eleventh succeeds, and it takes eleven more to give up.
    Script().answer = [probing = 0, request = 0](const Bytes& bytes) mutable {
        if (request++ % 5 == 0)
            ++probing;
        std::vector<Incoming> arrivals;
        if (probing == 11)
            arrivals.push_back({test::GoodReply(bytes, kTen_ms)});
        return arrivals;
    };
    filter.UseICMP("camera", 0s, "", false);
    filter.CheckPollDifference(0ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(log.Count("Gate: Probing for time difference! ..."), 22u);
    EXPECT_EQ(log.Count(Accepted()), 1u);
    EXPECT_EQ(log.Count("Gate: Ten failed time probings in a row, use of ICMP timeprobe discontinued !"), 1u);
}

TEST_F(ClockProbing, AnEarlierExpectedDifferenceCountsAsAFailure) {
    filter.CheckPollDifference(5ms);  // without a probe: told once, by the same count
    filter.UseICMP("nobody", 3'600s, "", false);
    filter.CheckPollDifference(5ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(log.Count("Gate: Time probe estimation discarded with uncertainty larger than 30ms"), 10u);
    EXPECT_EQ(log.Count("Gate: Ten failed time probings in a row, use of ICMP timeprobe discontinued !"), 1u);
}

TEST_F(ClockProbing, TheCountOfFailuresGoesOnBehindAThreadThatGaveUp) {
    filter.UseICMP("nobody", 0s, "", false);
    filter.CheckPollDifference(5ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    filter.CloseTimeProbing();
    filter.UseICMP("nobody", 0s, "", false);
    EXPECT_TRUE(
        log.WaitFor("Gate: Time probe estimation discarded with uncertainty larger than 30ms", 11 + 15));
    EXPECT_TRUE(filter.IsUsingProbe()) << "past the mark, which is hit once";
}

TEST_F(ClockProbing, AcceptsAnUncertaintyBelowThirtyMilliseconds) {
    const std::pair<double, bool> cases[] = {
        {29.999, true}, {30.0, false},   {30.001, false},       {0.0, true},       {-0.0, true},
        {-1.0, false},  {-0.001, false}, {std::nan(""), false}, {HUGE_VAL, false}, {-HUGE_VAL, false},
    };
    for (const auto& [uncertainty, accepted] : cases)
        EXPECT_EQ(IsAcceptable({0.0, uncertainty}), accepted) << uncertainty;
    EXPECT_FALSE(IsAcceptable({}));
}

TEST_F(ClockProbing, ARoundTripOfFiftyNineMillisecondsIsAccepted) {
    Answer(0, 59ms);
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CheckPollDifference(0ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    EXPECT_EQ(filter.GetD_uncert(), 29'500us);
}

TEST_F(ClockProbing, ARoundTripOfSixtyMillisecondsIsDiscarded) {
    Answer(1'000, 60ms);
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CheckPollDifference(5ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(log.Count(Accepted()), 0u);
    EXPECT_EQ(filter.GetD(), 5ms);
}

TEST_F(ClockProbing, ChangesOfTheExpectedDifferenceAreFollowed) {
    filter.UseICMP("camera", 0s, "", false);
    filter.CheckPollDifference(100ms);
    ASSERT_TRUE(log.WaitFor("Gate: Differnece estimate falls back to expected value of:100[ms]"));
    filter.CheckPollDifference(200ms);
    ASSERT_TRUE(log.WaitFor("Gate: Differnece estimate falls back to expected value of:200[ms]"));
    EXPECT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(filter.GetD(), 200ms);
}

TEST_F(ClockProbing, UnusableHostsAreFailuresToo) {
    Script().opens = false;
    filter.UseICMP("nobody", 0s, "", false);
    filter.CheckPollDifference(100ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));
    EXPECT_EQ(log.Count("Gate: Time probe estimation discarded with uncertainty larger than 30ms"), 11u);
}

// ---- probe log

TEST_F(ClockProbing, TheProbeLogHasARowForEveryProbing) {
    const TemporaryDirectory directory;
    Script().answer = [this, request = 0](const Bytes& bytes) mutable {
        std::vector<Incoming> arrivals;
        if (request++ < 5) {
            counter.Advance(3ms);
            arrivals.push_back({test::GoodReply(bytes, kTen_ms - 1'234'567)});
        }
        return arrivals;
    };
    log.Drain();
    {
        TimeFilter camera("C ");
        camera.UseICMP("camera", 0s, directory.Name(), true);
        camera.CheckPollDifference(0ms);
        ASSERT_TRUE(log.WaitFor("C Exiting time probe thread"));
    }
    std::string expected = "Logging probed time differences: \n time now msec, diff ms, uncert ms\n"
                           "1700042400015 , 1.23457e+06 , 1.5\n";
    for (int failure = 0; failure < 11; ++failure)
        expected += "1700042400015 , 0 , -1\n";
    EXPECT_EQ(directory.Read("probelog.txt"), expected);
    EXPECT_EQ(log.All().at(1), "C Setting up ICMP: \nurl: camera\npoll interval [sec]:0\nlog path: " +
                                   directory.Name() + "\nCreating log");
    EXPECT_EQ(log.All().at(2), "C Creating probe log: " + directory.Name() + kPathSeparator + "probelog.txt");
    EXPECT_EQ(log.All().at(3), "C Creating time-probe");
}

TEST_F(ClockProbing, AnOldProbeLogIsWrittenOver) {
    const TemporaryDirectory directory;
    std::ofstream(std::filesystem::path(directory.Name()) / "probelog.txt") << "an older and longer text\n"
                                                                            << std::string(1'000, 'x');
    {
        TimeFilter camera("C ");
        camera.UseICMP("camera", 0s, directory.Name(), true);
    }
    EXPECT_EQ(directory.Read("probelog.txt"),
              "Logging probed time differences: \n time now msec, diff ms, uncert ms\n");
}

TEST_F(ClockProbing, APathWithASeparatorGetsASecondOne) {
    const TemporaryDirectory directory;
    filter.UseICMP("camera", 0s, directory.Name() + kPathSeparator, true);
    EXPECT_EQ(log.Count("Gate: Creating probe log: " + directory.Name() + kPathSeparator + kPathSeparator +
                        "probelog.txt"),
              1u);
}

TEST_F(ClockProbing, AnEmptyPathIsTheWorkingDirectory) {
    const TemporaryDirectory directory;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.Name());
    {
        TimeFilter camera("C ");
        camera.UseICMP("camera", 0s, "", true);
        EXPECT_EQ(log.Count("C Creating probe log: probelog.txt"), 1u);
    }
    std::filesystem::current_path(before);
    EXPECT_EQ(directory.Read("probelog.txt"),
              "Logging probed time differences: \n time now msec, diff ms, uncert ms\n");
}

TEST_F(ClockProbing, AnUnwritableProbeLogIsNotReported) {
    const TemporaryDirectory directory;
    Answer(1'500);
    filter.UseICMP("camera", 0s, directory.Name() + kPathSeparator + "missing", true);
    filter.CheckPollDifference(1'500ms);
    EXPECT_TRUE(log.WaitFor(Accepted(), 2));
    filter.CloseTimeProbing();
    EXPECT_TRUE(std::filesystem::is_empty(directory.Name()));
}

TEST_F(ClockProbing, ItCanBeStartedAgainOnceClosed) {
    const TemporaryDirectory directory;
    Answer(1'500);
    filter.UseICMP("camera", 3'600s, directory.Name(), true);
    filter.CheckPollDifference(1'500ms);
    ASSERT_TRUE(log.WaitFor(Accepted()));
    filter.CloseTimeProbing();
    EXPECT_TRUE(filter.DIsLocked());
    filter.UseICMP("camera", 3'600s, directory.Name(), true);
    EXPECT_TRUE(filter.IsUsingProbe());
    EXPECT_TRUE(filter.DIsLocked()) << "once locked, always locked";
    // The schedule goes on from the last probing.
    ASSERT_TRUE(test::LetTicksPass(3));
    EXPECT_EQ(log.Count(Accepted()), 1u);
    counter.Advance(3'600s);
    ASSERT_TRUE(log.WaitFor(Accepted(), 2));
    filter.CloseTimeProbing();
    filter.UseICMP("camera", 3'600s, "", false);
    filter.CloseTimeProbing();
}

// ---- threads

TEST_F(ClockProbing, ClosingFromTheProbingThreadIsRefused) {
    std::atomic<bool> refused{false};
    Script().answer = [&](const Bytes&) {
        try {
            filter.CloseTimeProbing();
        } catch (const std::system_error& error) {
            refused = error.code() == std::errc::resource_deadlock_would_occur;
        }
        return std::vector<Incoming>{};
    };
    filter.UseICMP("camera", 0s, "", false);
    filter.CheckPollDifference(0ms);
    ASSERT_TRUE(log.WaitFor("Gate: Exiting time probe thread"));  // since the flag is cleared all the same
    EXPECT_TRUE(refused);
    EXPECT_EQ(log.Count("Gate: Done waiting for probe tasks"), 0u);
}

// One camera's turn lasts as long as the test likes; another is closed while it waits for its own.
TEST_F(ClockProbing, ClosingDoesNotWaitForTheTurnsOfOtherCameras) {
    std::promise<void> inTurn;
    std::promise<void> goOn;
    const MessageRecorder turns({"RTSP.TimeProbe"}, [&, held = goOn.get_future().share(),
                                                     first = true](const std::string& message) mutable {
        if (std::exchange(first, false)) {
            EXPECT_EQ(message, "S Probing camera 5 times, with timeout 300ms");
            inTurn.set_value();
            held.wait_for(test::kDeadline);
        }
    });
    TimeFilter slow("S ");
    slow.UseICMP("camera", 3'600s, "", false);
    slow.CheckPollDifference(1ms);
    ASSERT_EQ(inTurn.get_future().wait_for(test::kDeadline), std::future_status::ready);

    filter.SetD(7ms);
    filter.UseICMP("nobody", 3'600s, "", false);
    filter.CheckPollDifference(2ms);
    ASSERT_TRUE(log.WaitFor("Gate: Probing for time difference! ..."));
    filter.CloseTimeProbing();
    EXPECT_EQ(log.Count("S Time probe estimation discarded with uncertainty larger than 30ms"), 0u);
    EXPECT_EQ(log.Count("Gate: Exiting time probe thread"), 1u);
    EXPECT_EQ(log.Count("Gate: Time probe estimation discarded with uncertainty larger than 30ms"), 0u)
        << "nothing was measured, nothing has failed";
    EXPECT_EQ(filter.GetD(), 7ms);
    EXPECT_FALSE(filter.IsUsingProbe());
    goOn.set_value();

    // The next one is due at once.
    log.Drain();
    filter.UseICMP("nobody", 3'600s, "", false);
    EXPECT_TRUE(log.WaitFor("Gate: Probing for time difference! ..."));
}

using ClockProbingDeathTest = ClockProbing;

TEST_F(ClockProbingDeathTest, ASecondStartEndsTheProcessBehindItsMessages) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const MessageRecorder steps({"RTSP.TimeFilter"}, [step = 0](const std::string& message) mutable {
                if (message.rfind("Gate: Creating", 0) == 0)
                    std::cerr << ++step << " " << message << "\n";
            });
            filter.UseICMP("camera", 10s, "", false);
            filter.UseICMP("second", 20s, "missing", true);
        },
        "3 Gate: Creating time-probe");  // behind the first one's, and behind "Creating probe log"
}

TEST_F(ClockProbingDeathTest, AStartBehindOneThatGaveUpEndsTheProcessToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            filter.UseICMP("nobody", 10s, "", false);
            filter.CheckPollDifference(1ms);
            log.WaitFor("Gate: Exiting time probe thread");
            filter.UseICMP("camera", 10s, "", false);
        },
        "");
}

#if !defined(_WIN32)
TEST_F(ClockProbingDeathTest, AThreadThatCannotStartIsASystemError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto attempt = [this] {
        const rlimit none{0, 0};
        if (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setuid(65534) != 0))
            _exit(2);
        try {
            filter.UseICMP("camera", 10s, "", false);
        } catch (const std::system_error& error) {
            // The probe lives on, unused, and can be closed.
            const bool asTold = error.code() == std::errc::resource_unavailable_try_again &&
                                filter.IsUsingProbe() && !filter.DIsLocked();
            filter.CloseTimeProbing();
            _exit(asTold ? 0 : 3);
        }
        _exit(4);
    };
    EXPECT_EXIT(attempt(), testing::ExitedWithCode(0), "");
}
#endif

/// A thousand lives of a camera clock, ten at a time, ended at every point of a
/// probing, while packet threads ask.
TEST_F(ClockProbing, StartProbeCloseAndDestroyInAnyOrder) {
    Answer(1'500);
    std::vector<std::thread> owners;
    for (int owner = 0; owner < 10; ++owner) {
        owners.emplace_back([owner] {
            for (int life = 0; life < 100; ++life) {
                auto camera = std::make_unique<TimeFilter>("C ");
                std::atomic<bool> running{true};
                std::thread packets([&] {
                    while (running) {
                        camera->CheckPollDifference(1'400ms);
                        if (!camera->IsUsingProbe() && camera->DIsLocked())
                            camera->SetD(1'400ms);
                        camera->GetD();
                        camera->GetD_uncert();
                        std::this_thread::yield();
                    }
                });
                const int order = (owner + life) % 6;
                if (order != 0)
                    camera->UseICMP(life % 3 == 0 ? "nobody" : "camera", 0s, "", false);
                if (order == 2 || order == 3) {
                    EXPECT_TRUE(test::WaitUntil([&] { return camera->GetD() != 0ms; }));
                }
                if (order == 3 || order == 4)
                    camera->CloseTimeProbing();
                if (order == 4) {
                    camera->UseICMP("camera", 1s, "", false);
                    camera->CloseTimeProbing();
                }
                running = false;
                packets.join();
                if (order == 5)
                    camera->CloseTimeProbing();
                camera.reset();
            }
        });
    }
    for (std::thread& owner : owners)
        owner.join();
    EXPECT_EQ(Script().startUps, Script().cleanUps);
    EXPECT_EQ(Script().opened, Script().closed);
}

}  // namespace
}  // namespace camclock
