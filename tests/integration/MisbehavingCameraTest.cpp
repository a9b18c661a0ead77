// The program against cameras that break every rule: no frame is called good and is wrong, nothing hangs, and
// every failure is named.
#include "RunProgram.h"
#include "support/ScriptedRtspServer.h"

#include <camclock/Receiver.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace camclock::app::test {
namespace {

using camclock::test::ScriptedRtspServer;
using Player = ScriptedRtspServer::Player;
using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char kSdp[] = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=scripted\r\nt=0 0\r\n"
                        "m=video 0 RTP/AVP 96\r\na=rtpmap:96 X-SCRIPTED/90000\r\na=control:track\r\n";

constexpr milliseconds kFrameTime{10};
constexpr milliseconds kLatency{40};
constexpr int kFramesAReport = 20;
constexpr double kBound_ms = 30.0;

void Put(Bytes& out, std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes Rtp(std::uint16_t seq, std::uint32_t stamp, std::uint32_t ssrc, std::uint8_t payloadType = 96) {
    Bytes packet{0x80, static_cast<std::uint8_t>(0x80 | payloadType)};
    Put(packet, seq, 2);
    Put(packet, stamp, 4);
    Put(packet, ssrc, 4);
    packet.resize(packet.size() + 100, 0x55);
    return packet;
}

Bytes SenderReport(std::uint32_t ssrc, std::uint64_t ntp, std::uint32_t stamp) {
    Bytes packet{0x80, 200, 0, 6};
    Put(packet, ssrc, 4);
    Put(packet, ntp, 8);
    Put(packet, stamp, 4);
    Put(packet, 0, 8);
    return packet;
}

std::uint64_t Ntp(TimePoint time) {
    constexpr std::uint64_t kNtpToUnix_s = 2'208'988'800;
    const auto ticks = static_cast<std::uint64_t>(time.time_since_epoch().count());
    return ((ticks / 10'000'000 + kNtpToUnix_s) << 32U) + (((ticks % 10'000'000) << 32U) / 10'000'000);
}

/// The truth: when was the frame with this stamp made, on the host's clock?
class Truth {
public:
    void Add(std::uint32_t stamp, TimePoint made) {
        const std::lock_guard<std::mutex> guard(mutex_);
        made_[stamp] = made;
    }
    std::optional<TimePoint> Of(std::uint32_t stamp) const {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto found = made_.find(stamp);
        return found == made_.end() ? std::nullopt : std::optional(found->second);
    }

private:
    mutable std::mutex mutex_;
    std::map<std::uint32_t, TimePoint> made_;
};

/// A camera that sends each frame in one packet, 40 ms after it was made.
struct Sender {
    Player& player;
    Truth& truth;
    seconds clockAhead{3'600};
    std::uint32_t ssrc = 7;
    std::uint32_t origin = 0;  // of the stamps
    std::uint16_t seq = 0;
    TimePoint begun = receiver::Now();
    std::chrono::steady_clock::time_point next = std::chrono::steady_clock::now();
    int frames = 0;
    Bytes last{};

    std::uint32_t StampOf(TimePoint time) const {
        return origin + static_cast<std::uint32_t>((time - begun).count() * 9 / 1'000);
    }
    bool Report() {
        const TimePoint now = receiver::Now();
        return player.SendRtcp(SenderReport(ssrc, Ntp(now + clockAhead), StampOf(now)));
    }
    bool FrameOf(TimePoint made) {
        truth.Add(StampOf(made), made);
        last = Rtp(seq++, StampOf(made), ssrc);
        return player.SendRtp(last);
    }
    /// Some frames, and a report with every twentieth; before each frame `also` may do something else.
    bool Frames(int count, const std::function<bool(int)>& also = nullptr, bool reports = true) {
        for (int i = 0; i < count; ++i, ++frames) {
            next += kFrameTime;
            if (!player.WaitUntil(next) || (also && !also(i)))
                return false;
            if (reports && frames % kFramesAReport == 0 && !Report())
                return false;
            if (!FrameOf(receiver::Now() - kLatency))
                return false;
        }
        return true;
    }
};

/// A machine under load delays packets, and no median is farther off than the delays that it is of: the bound
/// is wider by the greatest that so many frames had.
constexpr std::size_t kWindow = 60;

/// The time of day of a text such as "2026-11-21T02:40:11.123Z" less that of `time`, in ms. Wrong by whole
/// days is wrong by hours here, too.
double Difference_ms(const std::string& text, TimePoint time) {
    const double text_s = std::stod(text.substr(17)) + 60.0 * std::stod(text.substr(14, 2)) +
                          3'600.0 * std::stod(text.substr(11, 2));
    const auto day = std::chrono::duration_cast<Ticks>(std::chrono::hours(24));
    return (text_s - std::chrono::duration<double>(time.time_since_epoch() % day).count()) * 1'000.0;
}

struct Misbehaviour {
    const char* name;
    std::function<void(Player&, Truth&)> play;
    const char* options = "";
    int leastGood = 50;  // so many rows must be good, since right answers are easy to withhold
};

class MisbehavingCamera : public testing::TestWithParam<Misbehaviour> {};

TEST_P(MisbehavingCamera, GivesNoFrameThatIsGoodAndWrong) {
    With(TestCamera::Stream::kH264);
    Truth truth;
    ScriptedRtspServer::Script script;
    script.sdp = kSdp;
    script.play = [&truth](Player& player) { GetParam().play(player, truth); };
    const ScriptedRtspServer server(script);
    const Outcome outcome =
        RunProgram(std::string("watch --transport tcp --mean-latency 40 --format json --duration 5 ") +
                   GetParam().options + " " + server.Url());
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    int good = 0;
    std::vector<double> delays_ms;
    std::int64_t lastPts = -1;
    for (const std::string& line : outcome.OutLines()) {
        const auto frame = nlohmann::json::parse(line);
        const std::optional<TimePoint> made = truth.Of(frame["rtp_ts"].get<std::uint32_t>());
        if (!made) {
            EXPECT_NE(frame["trust"], "good") << line;  // of another source
            continue;
        }
        const double delay_ms = Difference_ms(frame["TOR_host"], *made);
        delays_ms.push_back(std::fabs(delay_ms - static_cast<double>(kLatency.count())));
        if (delays_ms.size() > kWindow)
            delays_ms.erase(delays_ms.begin());
        if (frame["trust"] != "good")
            continue;
        ++good;
        const double error_ms = std::fabs(Difference_ms(frame["TOC_host"], *made));
        EXPECT_LE(error_ms, kBound_ms + *std::max_element(delays_ms.begin(), delays_ms.end())) << line;
        EXPECT_NE(frame["stable_pts"], lastPts) << line;
        lastPts = frame["stable_pts"];
    }
    EXPECT_GE(good, GetParam().leastGood) << outcome.err;
}

const Misbehaviour kMisbehaviours[]{
    {"Nothing",
     [](Player& p, Truth& t) {
         Sender{p, t}.Frames(1'000);
     }},
    {"StraySources",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.Frames(1'000, [&](int i) {
             return i % 10 != 0 || p.SendRtp(Rtp(static_cast<std::uint16_t>(i * 31), 123'456'789, 0xBAD));
         });
     }},
    {"ForeignReports",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.Frames(1'000, [&](int i) {
             return i % 10 != 0 || p.SendRtcp(SenderReport(0xBAD, Ntp(receiver::Now() + seconds(77)), 5));
         });
     }},
    {"NtpZeroAlways",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.Frames(
             1'000,
             [&](int i) { return i % 20 != 0 || p.SendRtcp(SenderReport(7, 0, s.StampOf(receiver::Now()))); },
             false);
     },
     "", 0},
    {"NtpOf1970First",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         const auto sinceEpoch = std::chrono::duration_cast<seconds>(receiver::Now().time_since_epoch());
         s.clockAhead = -sinceEpoch + seconds(100);
         if (!s.Frames(100))
             return;
         s.clockAhead = seconds(3'600);
         s.Frames(1'000);
     }},
    {"ClockStepOfAnHour",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         if (!s.Frames(150))
             return;
         s.clockAhead -= std::chrono::hours(1);
         s.Frames(1'000);
     }},
    {"StampsSet",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         if (!s.Frames(150))
             return;
         s.origin += 0x40000000;
         s.Frames(1'000);
     }},
    {"AnotherSource",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         if (!s.Frames(150))
             return;
         s.ssrc = 8;
         s.origin = 0x70000000;
         s.seq = 30'000;
         s.clockAhead = seconds(-7'200);
         s.Frames(1'000);
     }},
    {"LossAndDoubles",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.Frames(1'000, [&](int i) {
             if (i % 10 == 0)
                 ++s.seq;
             return i % 7 != 0 || p.SendRtp(s.last);
         });
     }},
    {"Junk",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.Frames(1'000, [&](int i) {
             Bytes junk(static_cast<std::size_t>(i % 40), static_cast<std::uint8_t>(i * 37));
             return p.SendRtp(junk) && p.SendRtcp(junk) && p.SendRtp(Rtp(9, 9, 7, 13));
         });
     }},
    {"BFrames",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         // Captured I0 B1 B2 P3, sent I0 P3 B1 B2: what was captured first waits.
         while (p.WaitUntil(s.next += 3 * kFrameTime)) {
             const TimePoint now = receiver::Now() - kLatency;
             if ((s.frames++ % 6 == 0 && !s.Report()) || !s.FrameOf(now) ||
                 !s.FrameOf(now - 2 * kFrameTime) || !s.FrameOf(now - kFrameTime))
                 return;
         }
     },
     "", 20},
    {"Pause",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         if (!s.Frames(120) || !p.WaitUntil(s.next += seconds(1)))
             return;
         s.Frames(1'000);
     }},
    {"ReconnectsWithAnotherClock",
     [](Player& p, Truth& t) {
         Sender s{p, t};
         s.ssrc = static_cast<std::uint32_t>(p.Session());
         s.clockAhead = seconds(3'600 * p.Session());
         s.origin = 0x20000000U * static_cast<std::uint32_t>(p.Session());
         s.Frames(120);
     },
     "--reconnect --reconnect-max 0.1", 50},
};

INSTANTIATE_TEST_SUITE_P(Kinds, MisbehavingCamera, testing::ValuesIn(kMisbehaviours),
                         [](const auto& tested) { return std::string(tested.param.name); });

Outcome Watch(const ScriptedRtspServer::Script& script, const std::string& options = "--transport tcp") {
    const ScriptedRtspServer server(script);
    return RunProgram("watch --connect-timeout 2 --duration 20 --format csv --summary none " + options + " " +
                      server.Url());
}

struct Refusal {
    const char* method;
    const char* status;
    int exitCode;
};

class Refused : public testing::TestWithParam<Refusal> {};

TEST_P(Refused, IsNamedWithTheStatus) {
    ScriptedRtspServer::Script script;
    script.sdp = kSdp;
    script.status[GetParam().method] = GetParam().status;
    const Outcome outcome = Watch(script);
    EXPECT_EQ(outcome.exitCode, GetParam().exitCode) << outcome.err;
    EXPECT_NE(outcome.err.find(std::string("(RTSP status ") + GetParam().status + ")"), std::string::npos)
        << outcome.err;
}

const Refusal kRefusals[]{
    {"DESCRIBE", "400 Bad Request", 17},
    {"DESCRIBE", "401 Unauthorized", 5},
    {"DESCRIBE", "403 Forbidden", 5},
    {"DESCRIBE", "404 Not Found", 6},
    {"DESCRIBE", "410 Gone", 6},
    {"DESCRIBE", "451 Parameter Not Understood", 17},
    {"DESCRIBE", "453 Not Enough Bandwidth", 17},
    {"DESCRIBE", "500 Internal Server Error", 17},
    {"DESCRIBE", "503 Service Unavailable", 17},
    {"SETUP", "403 Forbidden", 5},
    {"SETUP", "453 Not Enough Bandwidth", 17},
    {"SETUP", "454 Session Not Found", 17},
    {"SETUP", "461 Unsupported Transport", 17},
    {"SETUP", "503 Service Unavailable", 17},
    {"PLAY", "453 Not Enough Bandwidth", 17},
    {"PLAY", "454 Session Not Found", 17},
    {"PLAY", "455 Method Not Valid in This State", 17},
    {"PLAY", "457 Invalid Range", 17},
};

INSTANTIATE_TEST_SUITE_P(Statuses, Refused, testing::ValuesIn(kRefusals), [](const auto& tested) {
    return std::string(tested.param.method) + std::string(tested.param.status).substr(0, 3);
});

TEST(MisbehavingServer, ThatSendsUsInCirclesIsLeft) {
    ScriptedRtspServer::Script script;
    script.status["DESCRIBE"] = "302 Moved Temporarily";
    script.headers["DESCRIBE"] = "Location: rtsp://127.0.0.1:PORT/other\r\n";
    // The port is known only when the server runs: a second server sends to the first, which sends to itself.
    ScriptedRtspServer::Script loop = script;
    const ScriptedRtspServer first(script);
    loop.headers["DESCRIBE"] = "Location: " + first.Url() + "\r\n";
    ScriptedRtspServer second(loop);
    const Outcome outcome = RunProgram("watch --duration 20 " + second.Url());
    EXPECT_NE(outcome.exitCode, 0);
    EXPECT_NE(outcome.exitCode, 1) << outcome.err;
}

TEST(MisbehavingServer, ThatSendsUsToItselfIsLeft) {
    // A relative address leads back to the same server.
    ScriptedRtspServer::Script script;
    script.status["DESCRIBE"] = "302 Moved Temporarily";
    script.headers["DESCRIBE"] = "Location: rtsp://localhost/again\r\n";
    const ScriptedRtspServer server(script);
    const Outcome outcome = RunProgram("watch --connect-timeout 5 --duration 20 " + server.Url());
    EXPECT_NE(outcome.exitCode, 0);
    EXPECT_LT(server.Requests("DESCRIBE"), 20);
}

TEST(MisbehavingServer, ThatFallsSilentAnywhereIsATimeOut) {
    for (const char* method : {"OPTIONS", "DESCRIBE", "SETUP", "PLAY"}) {
        ScriptedRtspServer::Script script;
        script.sdp = kSdp;
        script.silentFrom = method;
        EXPECT_EQ(Watch(script).exitCode, 10) << method;
    }
}

TEST(MisbehavingServer, ThatPlaysNothingIsATimeOut) {
    ScriptedRtspServer::Script script;
    script.sdp = kSdp;
    script.play = [](Player& player) { player.WaitUntil(std::chrono::steady_clock::now() + seconds(60)); };
    EXPECT_EQ(Watch(script).exitCode, 10);
    const ScriptedRtspServer server(script);
    const Outcome outcome = RunProgram("watch --transport tcp --duration 1 --format csv " + server.Url());
    EXPECT_EQ(outcome.exitCode, 10);
    EXPECT_NE(outcome.err.find("no frame within 1000 ms"), std::string::npos) << outcome.err;
}

TEST(MisbehavingServer, WithoutAReportThatIsRequiredIsATimeOut) {
    Truth truth;
    ScriptedRtspServer::Script script;
    script.sdp = kSdp;
    script.play = [&truth](Player& player) { Sender{player, truth}.Frames(2'000, nullptr, false); };
    const Outcome outcome = Watch(script, "--transport tcp --require-rtcp --rtcp-timeout 1000");
    EXPECT_EQ(outcome.exitCode, 10);
    EXPECT_NE(outcome.err.find("no sender report within 1000 ms"), std::string::npos) << outcome.err;
}

TEST(MisbehavingServer, WhoseDescriptionIsJunkIsNamed) {
    for (const std::string& sdp :
         {std::string(), std::string("junk"), std::string(5'000, 'x'),
          std::string("v=0\r\nm=\r\nm=video\r\nm=video x RTP/AVP y\r\na=rtpmap:\r\n"),
          std::string("v=0\r\ns=\x1b[2J\r\nm=audio 0 RTP/AVP 0\r\n")}) {
        ScriptedRtspServer::Script script;
        script.sdp = sdp;
        const Outcome outcome = Watch(script);
        EXPECT_GE(outcome.exitCode, 2) << sdp;
        EXPECT_EQ(outcome.err.find('\x1b'), std::string::npos);
    }
}

TEST(MisbehavingServer, WithControlCharactersInItsReasonDoesNotReachTheTerminal) {
    ScriptedRtspServer::Script script;
    script.status["DESCRIBE"] = "404 \x1b[31mred\x07";
    const Outcome outcome = Watch(script);
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_EQ(outcome.err.find('\x1b'), std::string::npos);
    EXPECT_NE(outcome.err.find("\\x1b[31mred\\x07"), std::string::npos) << outcome.err;
}

TEST(MisbehavingServer, ThatRefusesUdpIsWatchedOverTcp) {
    Truth truth;
    ScriptedRtspServer::Script script;
    script.sdp = kSdp;
    script.refusesUdp = true;
    script.play = [&truth](Player& player) { Sender{player, truth}.Frames(2'000); };
    const ScriptedRtspServer server(script);
    const Outcome outcome = RunProgram("watch --duration 2 --format csv --summary json " + server.Url());
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find(R"("transport":"tcp")"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace camclock::app::test
