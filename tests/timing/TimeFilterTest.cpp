#include <camclock/TimeFilter.h>

#include "logging/Categories.h"
#include "support/CapturingAppender.h"

#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace camclock::test {
namespace {

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

constexpr TimePoint kA(Ticks(17'000'000'000'000'000));  // 2023-11-14 22:13:20.000
constexpr TimePoint kB = kA + milliseconds(1);
constexpr TimePoint kC = kA + std::chrono::hours(1);

static_assert(std::is_default_constructible_v<TimeFilter>);
static_assert(!std::is_copy_constructible_v<TimeFilter> && !std::is_copy_assignable_v<TimeFilter>);
static_assert(!std::is_polymorphic_v<TimeFilter>);

class TimeFilterTest : public ::testing::Test {
protected:
    /// The direct messages, without the first, which tells of the camera's making.
    Lines Direct() const {
        Lines messages = log_.Direct();
        messages.erase(messages.begin());
        return messages;
    }

    CapturingAppender log_{categories::TimeFilter()};
    CapturingAppender streamLog_{categories::TimeFilterInstance()};
    std::unique_ptr<TimeFilter> camera_ = std::make_unique<TimeFilter>("Gate 3: ");
};

TEST_F(TimeFilterTest, StartsWithItsDefaults) {
    EXPECT_EQ(camera_->GetPacketTimeOut(), milliseconds(10'000));
    EXPECT_EQ(camera_->GetRtcpTimeOut(), milliseconds(30'000));
    EXPECT_EQ(camera_->GetSyncShift(), milliseconds(0));
    EXPECT_EQ(camera_->GetD(), milliseconds(0));
    EXPECT_EQ(camera_->GetD_uncert(), std::chrono::microseconds(0));
    EXPECT_FALSE(camera_->RequireRTCP());
    EXPECT_FALSE(camera_->StablePtsT0Locked());
    EXPECT_EQ(camera_->GetStablePtsT0(true), TimePoint{});
    EXPECT_EQ(camera_->GetStablePtsT0(false), TimePoint{});
    EXPECT_FALSE(camera_->IsUsingProbe());
    EXPECT_TRUE(camera_->DIsLocked());
    EXPECT_FALSE(camera_->IsTimeLogging());
    EXPECT_EQ(TimeFilter().GetLogPrefix(), "");
}

TEST_F(TimeFilterTest, KeepsItsSettings) {
    camera_->SetPacketTimeOut(milliseconds(-1));
    camera_->SetRtcpTimeOut((milliseconds::max)());
    camera_->SetSyncShift((milliseconds::min)());
    camera_->SetD(milliseconds(-3'600'123));
    camera_->RequireRTCP(true);
    EXPECT_EQ(camera_->GetPacketTimeOut(), milliseconds(-1));
    EXPECT_EQ(camera_->GetRtcpTimeOut(), (milliseconds::max)());
    EXPECT_EQ(camera_->GetSyncShift(), (milliseconds::min)());
    EXPECT_EQ(camera_->GetD(), milliseconds(-3'600'123));
    EXPECT_EQ(camera_->GetD_uncert(), std::chrono::microseconds(0));
    EXPECT_TRUE(camera_->DIsLocked());
    EXPECT_TRUE(camera_->RequireRTCP());
    camera_->RequireRTCP(false);
    EXPECT_FALSE(camera_->RequireRTCP());
    camera_->SetD((milliseconds::min)());
    EXPECT_EQ(camera_->GetD(), (milliseconds::min)());
}

TEST_F(TimeFilterTest, TellsOfItsLife) {
    camera_->CreateNewTimeFilter();
    camera_->SetLogPrefix("Gate 4: ");
    EXPECT_EQ(camera_->GetLogPrefix(), "Gate 4: ");
    camera_.reset();
    EXPECT_EQ(log_.Messages(),
              (Lines{"Gate 3: TimeFilter::TimeFilter", "Gate 3: TimeFilter::CreateNewTimeFilter",
                     "Gate 4: TimeFilter::~TimeFilter", "Gate 4: TimeFilter::CloseTimeProbing",
                     "Gate 4: Waiting for probe tasks to finish", "Gate 4: Done waiting for probe tasks"}));
    for (const CapturedEvent& event : log_.Events()) {
        EXPECT_EQ(event.category, "RTSP.TimeFilter");
        EXPECT_EQ(event.priority, 600);
    }
}

TEST_F(TimeFilterTest, ClosingTheProbingWithoutAProbeOnlyLogs) {
    camera_->CloseTimeProbing();
    EXPECT_EQ(Direct(),
              (Lines{"Gate 3: TimeFilter::CloseTimeProbing", "Gate 3: Waiting for probe tasks to finish",
                     "Gate 3: Done waiting for probe tasks"}));
}

TEST_F(TimeFilterTest, KeepsNoHoldOfItsStreams) {
    const std::shared_ptr<TimeFilterInstance> stream = camera_->CreateNewTimeFilter();
    EXPECT_EQ(stream.use_count(), 1);
    EXPECT_NE(camera_->CreateNewTimeFilter(), stream);
}

TEST_F(TimeFilterTest, AnOriginWithoutReportsMayBeReplacedOneWithReportsIsFinal) {
    camera_->SetStablePtst0(kA, false);
    camera_->SetStablePtst0(kB, false);
    EXPECT_EQ(camera_->GetStablePtsT0(true), kB);
    EXPECT_EQ(camera_->GetStablePtsT0(false), kB);
    EXPECT_FALSE(camera_->StablePtsT0Locked());
    camera_->SetStablePtst0(kC, true);
    EXPECT_EQ(camera_->GetStablePtsT0(true), kC);
    EXPECT_EQ(camera_->GetStablePtsT0(false), kB);
    EXPECT_TRUE(camera_->StablePtsT0Locked());
    EXPECT_EQ(Direct(), Lines{});

    camera_->SetStablePtst0(kA, false);
    camera_->SetStablePtst0(kA, true);
    EXPECT_EQ(camera_->GetStablePtsT0(true), kC);
    EXPECT_EQ(camera_->GetStablePtsT0(false), kB);
    EXPECT_TRUE(camera_->StablePtsT0Locked());
    const std::string refused = "Gate 3: Not able to update stable pts t0, it has been set for this session";
    EXPECT_EQ(Direct(), (Lines{refused, refused}));

    camera_->CheckPollDifference(milliseconds(0));  // its notice comes behind all of them
    ASSERT_TRUE(log_.WaitForDeferred(4));
    EXPECT_EQ(
        log_.Deferred(),
        (Lines{
            "New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: false",
            "New stablePts T0 set: 2023-11-14 22:13:20.001 RTCP sync: false",
            "New stablePts T0 set: 2023-11-14 23:13:20.000 RTCP sync: true",
            "Time probe has not been created. Differnece estimate falls back to expected value of: 0[ms]"}));
}

TEST_F(TimeFilterTest, OriginsAtTheEndsOfTheRangeAreTold) {
    camera_->SetStablePtst0(kNotYetSet, false);
    camera_->SetStablePtst0((TimePoint::max)(), true);
    ASSERT_TRUE(log_.WaitForDeferred(2));
    EXPECT_EQ(log_.Deferred(), (Lines{"New stablePts T0 set: Invalid timepoint RTCP sync: false",
                                      "New stablePts T0 set: Invalid timepoint RTCP sync: true"}));
}

TEST_F(TimeFilterTest, TheExpectedDifferenceIsTakenAndToldOnce) {
    camera_->CheckPollDifference(milliseconds(250));
    EXPECT_EQ(camera_->GetD(), milliseconds(250));
    camera_->CheckPollDifference(milliseconds(300));
    EXPECT_EQ(camera_->GetD(), milliseconds(300));
    camera_->SetStablePtst0(kA, false);  // told behind everything else
    ASSERT_TRUE(log_.WaitForDeferred(2));
    EXPECT_EQ(
        log_.Deferred(),
        (Lines{
            "Time probe has not been created. Differnece estimate falls back to expected value of: 250[ms]",
            "New stablePts T0 set: 2023-11-14 22:13:20.000 RTCP sync: false"}));
}

TEST_F(TimeFilterTest, ANegativeExpectedDifferenceIsToldWithItsSign) {
    camera_->CheckPollDifference((milliseconds::min)());
    EXPECT_EQ(camera_->GetD(), (milliseconds::min)());
    ASSERT_TRUE(log_.WaitForDeferred(1));
    EXPECT_EQ(log_.Deferred(),
              Lines{"Time probe has not been created. Differnece estimate falls back to expected value "
                    "of: -9223372036854775808[ms]"});
}

TEST_F(TimeFilterTest, ShutDownWithoutAHandlerOnlyLogs) {
    camera_->ShutDown();
    camera_->AssignShutdownHandler(nullptr);
    camera_->ShutDown();
    const std::string message = "Gate 3: Shutdown called with no handler assigned";
    EXPECT_EQ(Direct(), (Lines{message, message}));
}

TEST_F(TimeFilterTest, ShutDownCallsTheLatestHandlerEveryTime) {
    int first = 0;
    int second = 0;
    camera_->AssignShutdownHandler([&first] { ++first; });
    camera_->ShutDown();
    camera_->AssignShutdownHandler([&second, this] {
        ++second;
        EXPECT_EQ(Direct(), Lines(1 + static_cast<std::size_t>(second), "Gate 3: Calling shutdown"))
            << "told before each call";
    });
    camera_->ShutDown();
    camera_->ShutDown();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_EQ(Direct(),
              (Lines{"Gate 3: Calling shutdown", "Gate 3: Calling shutdown", "Gate 3: Calling shutdown"}));
}

TEST_F(TimeFilterTest, AHandlerMayReplaceItselfAndKeepsItsStateBetweenCalls) {
    std::vector<std::string> calls;
    const std::string name = "a text that is too long to stand inside the callable";
    camera_->AssignShutdownHandler([this, &calls, name, count = 0]() mutable {
        if (++count == 2)
            camera_->AssignShutdownHandler(nullptr);
        calls.push_back(name + std::to_string(count));
    });
    camera_->SetTestStuff([this, &calls, name] {
        camera_->SetTestStuff(nullptr);
        calls.push_back(name);
    });
    for (int call = 0; call < 3; ++call) {
        camera_->ShutDown();
        camera_->TestStuff();
    }
    EXPECT_EQ(calls, (std::vector<std::string>{name + "1", name, name + "2"}));
}

TEST_F(TimeFilterTest, HandlersRunOnTheCallingThread) {
    std::thread::id shutdownThread;
    std::thread::id testThread;
    camera_->AssignShutdownHandler([&shutdownThread] { shutdownThread = std::this_thread::get_id(); });
    camera_->SetTestStuff([&testThread] { testThread = std::this_thread::get_id(); });
    camera_->ShutDown();
    camera_->TestStuff();
    EXPECT_EQ(shutdownThread, std::this_thread::get_id());
    EXPECT_EQ(testThread, std::this_thread::get_id());
}

TEST_F(TimeFilterTest, TestStuffCallsItsHookOrDoesNothing) {
    camera_->TestStuff();
    EXPECT_EQ(Direct(), Lines{});
    int calls = 0;
    camera_->SetTestStuff([&calls] { ++calls; });
    camera_->TestStuff();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Direct(), Lines{"Gate 3: Calling  testfunc"});
    camera_->SetTestStuff(nullptr);
    camera_->TestStuff();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Direct().size(), 1U);
}

TEST_F(TimeFilterTest, ReleasesItsHandlers) {
    const auto token = std::make_shared<int>(0);
    camera_->AssignShutdownHandler([token] {});
    camera_->SetTestStuff([token] {});
    EXPECT_EQ(token.use_count(), 3);
    camera_.reset();
    EXPECT_EQ(token.use_count(), 1);
}

// Of many threads that set an origin with RTCP sync exactly one succeeds, and one notice is given.
TEST_F(TimeFilterTest, ManyThreadsLockOneOriginAndGiveOneNotice) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) {
                camera_->SetStablePtst0(kA + milliseconds(t), true);
                camera_->CheckPollDifference(milliseconds(t));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Direct().size(), 8U * 50U - 1U);
    ASSERT_TRUE(log_.WaitForDeferred(2));
    EXPECT_EQ(log_.Deferred().size(), 2U);
}

TEST(TimeFilterAboveInfo, DoesItsWorkAndWritesNothing) {
    CapturingAppender log(categories::TimeFilter(), log4cpp::Priority::NOTICE);
    CapturingAppender streamLog(categories::TimeFilterInstance(), log4cpp::Priority::NOTICE);
    {
        TimeFilter camera("Gate 3: ");
        camera.CreateNewTimeFilter();
        camera.SetStablePtst0(kA, true);
        camera.SetStablePtst0(kB, true);
        EXPECT_EQ(camera.GetStablePtsT0(true), kA);
        int calls = 0;
        camera.ShutDown();
        camera.AssignShutdownHandler([&calls] { ++calls; });
        camera.SetTestStuff([&calls] { ++calls; });
        camera.ShutDown();
        camera.TestStuff();
        EXPECT_EQ(calls, 2);
        camera.CheckPollDifference(milliseconds(7));
        EXPECT_EQ(camera.GetD(), milliseconds(7));
    }
    EXPECT_TRUE(log.Events().empty());
    EXPECT_TRUE(streamLog.Events().empty());
}

}  // namespace
}  // namespace camclock::test
