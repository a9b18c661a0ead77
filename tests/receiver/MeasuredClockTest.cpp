// The clock difference measured with ICMP timestamps, over real sockets between network namespaces: root
// only.
#include "sim/RtpCamera.h"
#include "support/NetworkNamespaces.h"

#include <camclock/Receiver.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace camclock::receiver {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kSsrc = 1;

/// A camera whose frames take 80 ms, where 30 ms are expected: the median is wrong by 50 ms, a measured
/// difference is not. Its clock is this machine's.
class MeasuredClock : public testing::Test {
protected:
    void SetUp() override {
        std::string whyNot;
        network_ = test::TwoNamespaces::Make(test::TwoNamespaces::Camera::kPlainKernel, whyNot);
        if (!network_)
            GTEST_SKIP() << whyNot;
        start_ = Now();
    }

    static Settings To(const std::string& host) {
        Settings settings;
        settings.icmpHost = host;
        return settings;
    }

    void Feed(Stream& stream) {
        const TimePoint now = Now();
        const TimePoint captured = now - milliseconds(80);
        const auto ticks = static_cast<std::uint32_t>((captured - start_).count() * 9 / 1'000);
        if (frame_++ % 25 == 0)
            stream.FeedReport(kSsrc, sim::RtpCamera::NtpOf(captured), ticks, now);
        Frame frame;
        frame.arrived_host = now;
        frame.rtp_ts = ticks;
        frame.ssrc = kSsrc;
        stream.FeedFrame(frame);
    }

    /// Feeds and polls until `done`, but not for long.
    template <class Done>
    bool Until(Camera& camera, const std::vector<std::shared_ptr<Stream>>& streams, Done done) {
        for (const TimePoint deadline = Now() + seconds(20); Now() < deadline;) {
            for (const std::shared_ptr<Stream>& stream : streams)
                Feed(*stream);
            camera.Poll();
            if (done())
                return true;
            std::this_thread::sleep_for(milliseconds(10));  // the probing thread lives on the system's clock
        }
        return false;
    }

    std::unique_ptr<test::TwoNamespaces> network_;
    TimePoint start_{};
    std::uint64_t frame_ = 0;
};

TEST_F(MeasuredClock, AnswersAllStreamsOfTheCamera) {
    Camera camera("gate", To("10.77.0.2"));
    Frame first;
    Frame second;
    auto one = camera.AddStream("one", {}, [&](const Frame& frame) { first = frame; });
    auto two = camera.AddStream("two", {}, [&](const Frame& frame) { second = frame; });
    ASSERT_TRUE(Until(camera, {one, two}, [&] { return first.uncertainty && second.uncertainty; }));
    for (const Frame& frame : {first, second}) {
        const Ticks beside = frame.arrived_host - milliseconds(80) - frame.captured_host;
        EXPECT_LE(beside, milliseconds(5)) << "the latency that is expected does not matter";
        EXPECT_GE(beside, -milliseconds(5));
        EXPECT_LT(*frame.uncertainty, milliseconds(30));
    }

    one.reset();
    second.uncertainty.reset();
    EXPECT_TRUE(Until(camera, {two}, [&] { return second.uncertainty.has_value(); }))
        << "whoever is left measures";
}

TEST_F(MeasuredClock, ThatCannotBeHadIsToldOnce) {
    std::mutex mutex;
    std::vector<Event> events;
    Camera camera("gate", To("10.99.0.1"), [&](const Event& event) {
        const std::lock_guard<std::mutex> guard(mutex);
        events.push_back(event);
    });
    Frame last;
    const auto stream = camera.AddStream("one", {}, [&](const Frame& frame) { last = frame; });
    const auto count = [&] {
        const std::lock_guard<std::mutex> guard(mutex);
        return std::count_if(events.begin(), events.end(),
                             [](const Event& event) { return event.kind == Event::Kind::kProbeGaveUp; });
    };
    ASSERT_TRUE(Until(camera, {stream}, [&] { return count() > 0; }));
    for (int i = 0; i < 30; ++i) {
        Feed(*stream);
        camera.Poll();
    }
    EXPECT_EQ(count(), 1);
    EXPECT_FALSE(last.uncertainty);
    const Ticks beside = last.arrived_host - milliseconds(30) - last.captured_host;
    EXPECT_LE(beside, milliseconds(2)) << "estimated from then on";
    EXPECT_GE(beside, -milliseconds(2));
}

}  // namespace
}  // namespace camclock::receiver
