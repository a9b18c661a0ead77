#include "logging/AsynchronousLog.h"

#include "logging/TimeText.h"
#include "support/CapturingSink.h"
#include "support/Fork.h"
#include "support/LogFences.h"
#include "support/Stamp.h"
#include "support/Ticks.h"

#include <log4cpp/threading/Threading.hh>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace camclock::test {
namespace {

using Lines = std::vector<std::string>;

AsynchronousLog::Message Say(std::string text) {
    return [text = std::move(text)](std::stringstream& out) { out << text; };
}

std::string SystemTimeText() {
    return TimePointToText(std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now()),
                           "%Y-%m-%d %H:%M:%S", true);
}

std::string DigitsAsZeros(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
    return text;
}

/// The time of a stamp, as text.
std::string StampTime(const std::string& line) {
    return line.substr(2, 23);
}

Lines WithoutStamps(const Lines& lines) {
    Lines result;
    for (const std::string& line : lines)
        result.push_back(WithoutStamp(line));
    return result;
}

TEST(AsynchronousLog, StampsALineWithTimeAndThread) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    const std::string before = SystemTimeText();
    log.Post(Say("text"));
    const std::string after = SystemTimeText();
    ASSERT_TRUE(lines.WaitFor(1));
    const std::string line = lines.All()[0];
    EXPECT_EQ(DigitsAsZeros(line.substr(0, 25)), "[[0000-00-00 00:00:00.000");
    EXPECT_EQ(line.substr(25), " [" + log4cpp::threading::getThreadId() + "] ]] text");
    EXPECT_LE(before, StampTime(line));
    EXPECT_LE(StampTime(line), after);
}

TEST(AsynchronousLog, StampsTheThreadThatPosted) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    std::string otherId;
    std::thread other([&] {
        otherId = log4cpp::threading::getThreadId();
        log.Post(Say("from another thread"));
    });
    other.join();
    ASSERT_TRUE(lines.WaitFor(1));
    EXPECT_NE(otherId, log4cpp::threading::getThreadId());
    EXPECT_EQ(lines.All()[0].substr(25), " [" + otherId + "] ]] from another thread");
}

TEST(AsynchronousLog, StampsTheTimeOfTheHandOverNotOfTheWriting) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    lines.Hold();
    log.Post(Say("blocks the worker"));
    ASSERT_TRUE(lines.WaitFor(1));
    log.Post(Say("waits"));
    const std::string after = SystemTimeText();
    // The log's stamps come from the system clock: its next millisecond will do.
    ASSERT_TRUE(WaitUntil([&after] { return SystemTimeText() != after; }));
    lines.Release();
    ASSERT_TRUE(lines.WaitFor(2));
    EXPECT_LE(StampTime(lines.All()[1]), after);
}

TEST(AsynchronousLog, WritesInTheOrderOfThePosts) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    Lines expected;
    for (int i = 0; i < 1'000; ++i) {
        expected.push_back("message " + std::to_string(i));
        log.Post(Say(expected.back()));
    }
    ASSERT_TRUE(lines.WaitFor(expected.size()));
    EXPECT_EQ(WithoutStamps(lines.All()), expected);
}

TEST(AsynchronousLog, GivesEveryMessageAFreshStream) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    log.Post([](std::stringstream& out) {
        out << std::hex << 255;
        out.setstate(std::ios::failbit);
    });
    log.Post([](std::stringstream& out) { out << 255; });
    log.Post([](std::stringstream& out) {
        out.str(std::string());
        out << "a message may take the stamp away";
    });
    ASSERT_TRUE(lines.WaitFor(3));
    EXPECT_EQ(WithoutStamp(lines.All()[0]), "ff");
    EXPECT_EQ(WithoutStamp(lines.All()[1]), "255");
    EXPECT_EQ(lines.All()[2], "a message may take the stamp away");
}

TEST(AsynchronousLog, WritesABurst) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    lines.Hold();
    log.Post(Say("blocks the worker"));
    ASSERT_TRUE(lines.WaitFor(1));
    for (int i = 0; i < 5'000; ++i)  // more than the memory that the log keeps
        log.Post([i, large = std::string(300, 'x')](std::stringstream& out) { out << i << large; });
    lines.Release();
    ASSERT_TRUE(lines.WaitFor(5'001));
    for (int i = 0; i < 100; ++i)
        log.Post(Say("after the burst"));
    ASSERT_TRUE(lines.WaitFor(5'101));
    const Lines all = lines.All();
    for (int i = 0; i < 5'000; ++i)
        ASSERT_EQ(WithoutStamp(all[static_cast<std::size_t>(i) + 1]),
                  std::to_string(i) + std::string(300, 'x'));
    EXPECT_EQ(WithoutStamp(all.back()), "after the burst");
}

TEST(AsynchronousLog, ReleasesAMessageOnceItIsWritten) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    auto value = std::make_shared<int>(7);
    const std::weak_ptr<int> watched = value;
    log.Post([value = std::move(value)](std::stringstream& out) { out << *value; });
    log.Post(Say("next"));  // the worker comes to it after it has let go of the first
    ASSERT_TRUE(lines.WaitFor(2));
    EXPECT_TRUE(watched.expired());
}

TEST(AsynchronousLog, KeepsTheOrderOfEachOfManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kMessages = 500;
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&log, t] {
            for (int i = 0; i < kMessages; ++i)
                log.Post(Say(std::to_string(t) + " " + std::to_string(i)));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(lines.WaitFor(kThreads * kMessages));
    std::array<int, kThreads> next{};
    for (const std::string& line : WithoutStamps(lines.All())) {
        const std::size_t blank = line.find(' ');
        int& expected = next[std::stoul(line.substr(0, blank))];
        ASSERT_EQ(std::stoi(line.substr(blank + 1)), expected) << line;
        ++expected;
    }
    for (const int count : next)
        EXPECT_EQ(count, kMessages);
}

TEST(AsynchronousLog, ASlowSinkBlocksNoPoster) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    lines.Hold();
    log.Post(Say("blocks the worker"));
    ASSERT_TRUE(lines.WaitFor(1));
    for (int i = 0; i < 1'000; ++i)
        log.Post(Say("more"));  // returns while the sink is still busy
    EXPECT_EQ(lines.All().size(), 1U);
    lines.Release();
    EXPECT_TRUE(lines.WaitFor(1'001));
}

TEST(AsynchronousLog, DestructionDropsWhatIsQueuedAndCompletesTheBatchInHand) {
    CapturedLines lines;
    auto log = std::make_unique<AsynchronousLog>(new CapturingSink(lines));
    lines.Hold();
    log->Post(Say("A"));
    ASSERT_TRUE(lines.WaitFor(1));
    // The worker is busy with A, so that the next three make one batch.
    log->Post(Say("B"));
    log->Post(Say("C"));
    log->Post(Say("D"));
    lines.Permit(1);
    ASSERT_TRUE(lines.WaitFor(2));
    const auto token = std::make_shared<int>(0);
    log->Post([token](std::stringstream& out) { out << "E"; });

    AsynchronousLog& dying = *log;
    std::thread destroyer([&log] { log.reset(); });
    WaitForDestruction(dying);
    EXPECT_EQ(token.use_count(), 2) << "queued, and neither run nor dropped yet";
    lines.Release();
    destroyer.join();
    EXPECT_EQ(WithoutStamps(lines.All()), (Lines{"A", "B", "C", "D"}));
    EXPECT_EQ(token.use_count(), 1) << "dropped with the queue";
}

TEST(AsynchronousLog, DestructionOfABusyLogWritesNoneOfTheQueued) {
    CapturedLines lines;
    auto log = std::make_unique<AsynchronousLog>(new CapturingSink(lines));
    lines.Hold();
    log->Post(Say("in hand"));
    ASSERT_TRUE(lines.WaitFor(1));
    for (int i = 0; i < 100; ++i)
        log->Post(Say("queued"));
    AsynchronousLog& dying = *log;
    std::thread destroyer([&log] { log.reset(); });
    WaitForDestruction(dying);
    lines.Release();
    destroyer.join();
    EXPECT_EQ(WithoutStamps(lines.All()), Lines{"in hand"});
}

TEST(AsynchronousLog, DestroysItsSinkAfterTheLastWrite) {
    class WatchedSink : public LogWrap {
    public:
        explicit WatchedSink(std::shared_ptr<std::promise<void>> destroyed)
            : destroyed_(std::move(destroyed)) {}
        ~WatchedSink() override { destroyed_->set_value(); }
        void Write(std::stringstream&) override {}

    private:
        std::shared_ptr<std::promise<void>> destroyed_;
    };
    const auto destroyed = std::make_shared<std::promise<void>>();
    std::future<void> done = destroyed->get_future();
    {
        AsynchronousLog log(new WatchedSink(destroyed));
        log.Post(Say("text"));
        EXPECT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    }
    EXPECT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::ready);
}

TEST(AsynchronousLog, ManyLogsStartAndEndAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> written{0};
    std::atomic<int> alive{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                CapturedLines lines;
                AsynchronousLog log(new CapturingSink(lines));
                const auto token = std::shared_ptr<int>(new int(++alive), [&alive](const int* value) {
                    --alive;
                    delete value;
                });
                log.Post([token](std::stringstream& out) { out << "text"; });
                if (i % 2 == 0)
                    written += lines.WaitFor(1) ? 1 : 0;  // and every other one ends at once
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(written, 100);
    EXPECT_EQ(alive, 0) << "every message is written or dropped";
}

// The shortest of many hand-overs is taken, since a loaded machine stretches the others.
TEST(AsynchronousLog, TakesABatchAtTheTickBehindThePost) {
    CapturedLines lines;
    AsynchronousLog log(new CapturingSink(lines));
    auto shortest = std::chrono::steady_clock::duration::max();
    for (std::size_t i = 1; i <= 20; ++i) {
        ASSERT_TRUE(LetTicksPass(1));  // the worker sleeps again
        const auto posted = std::chrono::steady_clock::now();
        log.Post(Say("text"));
        ASSERT_TRUE(lines.WaitFor(i));
        shortest = (std::min)(shortest, std::chrono::steady_clock::now() - posted);
    }
    EXPECT_LT(shortest, 5 * Tick::kPeriod);
}

class ThrowingSink : public LogWrap {
public:
    void Write(std::stringstream&) override { throw std::runtime_error("a sink that throws"); }
};

TEST(AsynchronousLogDeathTest, ASinkThatThrowsEndsTheProcess) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            AsynchronousLog log(new ThrowingSink);
            log.Post(Say("text"));
            std::promise<void>().get_future().wait_for(kDeadline);
        },
        "a sink that throws");
}

#if CAMCLOCK_TESTS_CAN_FORK
TEST(AsynchronousLog, WorksInAChildOfForkToo) {
    CapturedLines parentsLines;
    AsynchronousLog parents(new CapturingSink(parentsLines));
    EXPECT_TRUE(SucceedsInAChild([] {
        CapturedLines lines;
        AsynchronousLog log(new CapturingSink(lines));
        log.Post(Say("from the child"));
        return lines.WaitFor(1);
    }));
    parents.Post(Say("from the parent"));
    EXPECT_TRUE(parentsLines.WaitFor(1));
}
#endif

TEST(AsynchronousLog, AnEmptyMessageEndsTheProcess) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            CapturedLines lines;
            AsynchronousLog log(new CapturingSink(lines));
            log.Post(AsynchronousLog::Message());
            lines.WaitFor(1);
        },
        "bad_function_call");
}

}  // namespace
}  // namespace camclock::test
