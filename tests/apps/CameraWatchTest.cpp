#include "apps/camclock/sources/CameraWatch.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace camclock::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = CameraWatch::Clock;

/// A source under the test's control.
struct FakeSource : PacketSource {
    struct Control {
        int started = 0;
        int closed = 0;
        std::optional<Failure> failure;
        PacketSource::Taker taker;
    };
    FakeSource(std::shared_ptr<Control> its, Taker taker)
        : control(std::move(its)) {
        control->taker = std::move(taker);
        control->failure.reset();
    }
    void Start() override { ++control->started; }
    std::optional<Failure> Poll() override { return control->failure; }
    const char* Road() const override { return "tcp"; }
    void Close() override { ++control->closed; }

    std::shared_ptr<Control> control;
};

class CameraWatchTest : public testing::Test {
protected:
    std::unique_ptr<CameraWatch> Make(const ConnectionSettings& connection,
                                      std::optional<milliseconds> requireReports = std::nullopt) {
        const CameraWatch::Numbers numbers{1, connection.audio ? std::optional<int>(2) : std::nullopt};
        return std::make_unique<CameraWatch>(
            "gate", std::make_shared<receiver::Camera>("gate"), numbers,
            *StreamUrl::Parse("rtsp://gate/live"), connection, requireReports,
            [this](Worker& /*worker*/, PacketSource::Taker taker) {
                return std::make_unique<FakeSource>(control_, std::move(taker));
            },
            [this](const FrameRow& row) { rows_.push_back(row); });
    }

    static receiver::Format Video() {
        receiver::Format format;
        format.encoding = "X";
        return format;
    }

    static receiver::Format Audio() {
        receiver::Format format;
        format.media = "audio";
        format.encoding = "PCMU";
        format.clockRate_Hz = 8'000;
        return format;
    }

    /// One frame in one packet.
    static void Feed(StreamFeed& feed, std::uint16_t seq) {
        std::vector<std::uint8_t> packet{0x80, 0xE0, 0, static_cast<std::uint8_t>(seq),
                                         0,    0,    0, static_cast<std::uint8_t>(seq),
                                         0,    0,    0, 7,
                                         1,    2,    3};
        feed.FeedRtp(packet.data(), packet.size(), receiver::Now());
    }

    const Failure kLost{ExitCode::kStreamLost, "stream lost", "look at it"};
    std::shared_ptr<FakeSource::Control> control_ = std::make_shared<FakeSource::Control>();
    std::vector<FrameRow> rows_;
    Clock::time_point now_ = Clock::now();
};

TEST_F(CameraWatchTest, EndsWithTheFailureOfItsSource) {
    const auto watch = Make({});
    watch->Start(now_);
    EXPECT_TRUE(watch->Poll(now_).empty());
    control_->failure = kLost;
    EXPECT_EQ(watch->Poll(now_), std::vector<std::string>{"gate: stream lost; look at it"});
    EXPECT_EQ(watch->GetState(), CameraWatch::State::kEnded);
    EXPECT_EQ(watch->LastFailure()->code, ExitCode::kStreamLost);
    EXPECT_EQ(control_->closed, 1);
}

TEST_F(CameraWatchTest, ConnectsAgainWithDoubledDelays) {
    ConnectionSettings connection;
    connection.reconnect = true;
    connection.longestDelay = seconds(3);
    const auto watch = Make(connection);
    watch->Start(now_);
    for (const char* delay : {"1.0", "2.0", "3.0", "3.0"}) {
        control_->failure = kLost;
        EXPECT_EQ(watch->Poll(now_),
                  std::vector<std::string>{std::string("gate: stream lost; look at it (next attempt in ") +
                                           delay + " s)"});
        EXPECT_EQ(watch->GetState(), CameraWatch::State::kWaiting);
        now_ += seconds(3);
        watch->Poll(now_);
        EXPECT_EQ(watch->GetState(), CameraWatch::State::kConnecting);
    }
    EXPECT_EQ(control_->started, 5);
}

TEST_F(CameraWatchTest, AStreamGoesOnOverConnectionsInAnotherEpoch) {
    ConnectionSettings connection;
    connection.reconnect = true;
    const auto watch = Make(connection);
    watch->Start(now_);
    const auto first = control_->taker(Video());
    Feed(*first, 1);
    Feed(*first, 2);
    watch->Poll(now_);
    EXPECT_EQ(watch->GetState(), CameraWatch::State::kReceiving);
    EXPECT_EQ(watch->Road(), "tcp");
    control_->failure = kLost;
    watch->Poll(now_);
    watch->Poll(now_ += seconds(1));
    const auto second = control_->taker(Video());
    Feed(*second, 9);
    Feed(*second, 10);
    watch->Stop();
    ASSERT_GE(rows_.size(), 3U);
    EXPECT_EQ(rows_.front().frame.epoch, 1U);
    EXPECT_EQ(rows_.back().frame.epoch, 2U);
    EXPECT_GT(rows_.back().frame.pts, rows_.front().frame.pts);
}

TEST_F(CameraWatchTest, AClosedFeedDeliversNothing) {
    const auto watch = Make({});
    watch->Start(now_);
    const auto feed = control_->taker(Video());
    feed->Close();
    Feed(*feed, 1);
    Feed(*feed, 2);
    watch->Stop();
    EXPECT_TRUE(rows_.empty());
}

TEST_F(CameraWatchTest, TakesSoundOnlyWhenItIsWanted) {
    const auto silent = Make({});
    silent->Start(now_);
    EXPECT_FALSE(control_->taker(Audio()));
    ConnectionSettings connection;
    connection.audio = true;
    const auto watch = Make(connection);
    watch->Start(now_);
    const auto feed = control_->taker(Audio());
    ASSERT_TRUE(feed);
    Feed(*feed, 1);
    watch->Stop();
    ASSERT_EQ(rows_.size(), 1U);
    EXPECT_EQ(rows_[0].stream, 2);
    EXPECT_EQ(rows_[0].clockRate_Hz, 8'000U);
}

TEST_F(CameraWatchTest, NoFrameInTimeIsATimeOut) {
    const auto watch = Make({});
    watch->Start(now_);
    EXPECT_TRUE(watch->Poll(now_ + seconds(9)).empty());
    EXPECT_EQ(watch->Poll(now_ + seconds(10)).size(), 1U);
    EXPECT_EQ(watch->LastFailure()->code, ExitCode::kTimeOut);
}

TEST_F(CameraWatchTest, SilenceOfThePictureEndsIt) {
    const auto watch = Make({});
    watch->Start(now_);
    Feed(*control_->taker(Video()), 1);
    watch->Poll(now_);
    watch->OnSilence(watch->StreamId("audio"));
    EXPECT_TRUE(watch->Poll(now_).empty());
    watch->OnSilence(watch->StreamId("video"));
    EXPECT_EQ(watch->Poll(now_).size(), 1U);
    EXPECT_EQ(watch->LastFailure()->code, ExitCode::kTimeOut);
}

TEST_F(CameraWatchTest, ReportsThatAreRequiredAndNeverCameAreMissed) {
    const auto watch = Make({}, milliseconds(500));
    watch->Start(now_);
    const auto feed = control_->taker(Video());
    Feed(*feed, 1);
    Feed(*feed, 2);
    watch->Poll(now_);
    EXPECT_TRUE(watch->Poll(now_ + milliseconds(500)).empty());
    EXPECT_EQ(watch->Poll(now_ + milliseconds(800)).size(), 1U);
    EXPECT_EQ(watch->LastFailure()->what, "time-out: no sender report within 500 ms");
}

// Packets come on threads of the source; the thread sanitizer watches this one.
TEST_F(CameraWatchTest, PacketsMayComeWhileItIsPolledAndStopped) {
    const auto watch = Make({});
    watch->Start(now_);
    const auto feed = control_->taker(Video());
    std::thread source([&feed] {
        for (int i = 0; i < 2'000; ++i)
            Feed(*feed, static_cast<std::uint16_t>(i % 256));
    });
    for (int i = 0; i < 100; ++i) {
        watch->Poll(now_);
        watch->Facts(1);
    }
    source.join();
    watch->Stop();
    EXPECT_FALSE(rows_.empty());
}

}  // namespace
}  // namespace camclock::app
