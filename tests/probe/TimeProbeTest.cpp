#include "probe/TimeProbe.h"

#include "MessageRecorder.h"
#include "ScriptedSockets.h"
#include "support/IcmpReplies.h"
#include "support/ManualCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace camclock {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::ManualCounter;
using test::MessageRecorder;
using test::ScriptedSockets;
using Incoming = ScriptedSockets::Incoming;
using Lines = std::vector<std::string>;

constexpr std::int64_t kMinInt64 = (std::numeric_limits<std::int64_t>::min)();
constexpr TimePoint kMidnight(Ticks(1'700'006'400LL * 10'000'000));  // 2023-11-15 00:00:00 UTC
constexpr TimePoint kTen = kMidnight + 10h;
constexpr std::uint32_t kTen_ms = 36'000'000;

std::uint16_t Word(const Bytes& bytes, std::size_t offset) {
    std::uint16_t value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// ---- clock helpers

TEST(ProbeClock, MidnightIsTheLastOneInUtc) {
    const ManualCounter counter(kMidnight + 86'399'999ms);
    EXPECT_EQ(TimeProbe::MidnightUtc(), kMidnight);
    EXPECT_EQ(TimeProbe::MillisecondsAfterMidnightUtc(), 86'399'999);
}

TEST(ProbeClock, MidnightItselfIsItsOwn) {
    const ManualCounter counter(kMidnight);
    EXPECT_EQ(TimeProbe::MidnightUtc(), kMidnight);
    EXPECT_EQ(TimeProbe::MillisecondsAfterMidnightUtc(), 0);
}

TEST(ProbeClock, DropsTicksBelowAMillisecond) {
    const ManualCounter counter(kTen + Ticks(9'999));
    EXPECT_EQ(TimeProbe::MidnightUtc(), kMidnight);
    EXPECT_EQ(TimeProbe::MillisecondsAfterMidnightUtc(), 36'000'000);
}

TEST(ProbeClock, CountsFromMidnightBefore1970Too) {
    const ManualCounter counter(TimePoint(Ticks(-10'000'000)));
    EXPECT_EQ(TimeProbe::MidnightUtc(), TimePoint(Ticks(-86'400LL * 10'000'000)));
    EXPECT_EQ(TimeProbe::MillisecondsAfterMidnightUtc(), 86'399'000);
}

TEST(ProbeClock, HasAResultForEveryClock) {
    for (const std::int64_t ticks : {kMinInt64, kMinInt64 + 1, (std::numeric_limits<std::int64_t>::max)()}) {
        const ManualCounter counter{TimePoint(Ticks(ticks))};
        EXPECT_GE(TimeProbe::MillisecondsAfterMidnightUtc(), 0);
        EXPECT_LT(TimeProbe::MillisecondsAfterMidnightUtc(), 86'400'000);
        const std::int64_t midnight = TimeProbe::MidnightUtc().time_since_epoch().count();
        // The earliest clock's midnight lies before all times, and wraps round to the last of them.
        EXPECT_EQ(midnight % 10'000'000 == 0, ticks > 0) << midnight;
    }
}

TEST(ProbeClock, IsReadAgainBehindTheFirstLine) {
    ManualCounter counter(kMidnight + 86'399'999ms);
    const MessageRecorder log({"RTSP.TimeProbe"}, [&counter](const std::string& message) {
        if (message.rfind("Now: ", 0) == 0)
            counter.Advance(3ms);  // what writing it may take
    });
    EXPECT_EQ(TimeProbe::MillisecondsAfterMidnightUtc(), 2);
    EXPECT_EQ(log.All(), (Lines{"Now: 2023-11-15 23:59:59.999", "Midnight: 2023-11-16 00:00:00.000"}));
}

TEST(ProbeClock, TwoLinesWithoutPrefixTellTheReadings) {
    const ManualCounter counter(kTen + 42ms);
    const MessageRecorder log = MessageRecorder({"RTSP.TimeProbe"});
    TimeProbe::MillisecondsAfterMidnightUtc();
    EXPECT_EQ(log.All(), (Lines{"Now: 2023-11-15 10:00:00.042", "Midnight: 2023-11-15 00:00:00.000"}));
}

// ---- one reply

class TimestampReply : public testing::Test {
protected:
    static constexpr std::uint16_t kIdentifier = 0x4567;

    void SetUp() override { ScriptedSockets::Reset(); }

    /// A request made at `originate_ms`.
    static Bytes Request(std::uint32_t originate_ms) {
        Bytes request(20, 0);
        request[0] = 13;
        const std::uint16_t identifier = kIdentifier;
        std::memcpy(&request[4], &identifier, sizeof identifier);
        std::memcpy(&request[8], &originate_ms, sizeof originate_ms);
        return request;
    }

    bool Parse(const Bytes& reply) {
        log.Drain();
        Bytes buffer(500, 0);
        std::copy(reply.begin(), reply.end(), buffer.begin());
        return probe.ParseTimestampReply(buffer.data(), static_cast<std::uint32_t>(reply.size()), kIdentifier,
                                         out);
    }

    /// The clock's two lines, then `line`.
    static Lines AfterClock(const std::string& line) {
        return {"Now: 2023-11-15 10:00:00.000", "Midnight: 2023-11-15 00:00:00.000", line};
    }

    ManualCounter counter{kTen};
    MessageRecorder log = MessageRecorder({"RTSP.TimeProbe"});
    TimeProbe probe{"Gate 3: "};
    ProbeResult out;
};

TEST_F(TimestampReply, TheDefaultResultIsTheEmptyOne) {
    EXPECT_EQ(out.difference, 0.0);
    EXPECT_EQ(out.uncertainty, -1.0);
}

TEST_F(TimestampReply, TakesTheMiddleOfTheRoundTrip) {
    const Bytes request = Request(kTen_ms - 7);
    EXPECT_TRUE(Parse(test::GoodReply(request, kTen_ms - 10'000)));
    EXPECT_EQ(out.difference, 9'996.5);
    EXPECT_EQ(out.uncertainty, 3.5);
    EXPECT_EQ(
        log.All(),
        (Lines{
            "Now: 2023-11-15 10:00:00.000", "Midnight: 2023-11-15 00:00:00.000",
            "Gate 3: Remote timestamp: 2023-11-15 09:59:50.000 seconds after midnight UTC (35990000) millisecs",
            "Gate 3: Corresponding Local: 2023-11-15 09:59:59.996 UTC",
            "Gate 3: Local_time = Remote_time + 0 hours, 0 minutes, 9.9965+-0.0035 seconds/ Local_time = "
            "Remote_time + (9996.5+-3.5)ms"}));
}

TEST_F(TimestampReply, SplitsANegativeDifferenceByItsMagnitude) {
    EXPECT_TRUE(Parse(test::GoodReply(Request(kTen_ms), kTen_ms + 3'723'500)));
    EXPECT_EQ(out.difference, -3'723'500.0);
    EXPECT_EQ(out.uncertainty, 0.0);
    EXPECT_EQ(log.All().at(4),
              "Gate 3: Local_time = Remote_time - 1 hours, 2 minutes, 3.5+-0 seconds/ Local_time = "
              "Remote_time - (3.7235e+06+-0)ms");
}

TEST_F(TimestampReply, AReplyAfterMidnightHasANegativeUncertainty) {
    // Sent at 23:59:59.900, back at 00:00:00.050.
    const ManualCounter afterMidnight(kMidnight + 50ms);
    EXPECT_TRUE(Parse(test::GoodReply(Request(86'399'900), 86'399'950)));
    EXPECT_EQ(out.uncertainty, -43'199'925.0);
    EXPECT_EQ(out.difference, -43'199'975.0);
}

TEST_F(TimestampReply, EveryTransmitTimeHasAText) {
    // RFC 792 lets a clock without UTC set the highest bit; the number is taken as it is.
    EXPECT_TRUE(Parse(test::GoodReply(Request(kTen_ms), 0xFFFF'FFFF)));
    EXPECT_EQ(out.difference, -4'258'967'295.0);
    EXPECT_EQ(log.All().at(2), "Gate 3: Remote timestamp: 2024-01-03 17:02:47.295 seconds after midnight UTC "
                               "(4294967295) millisecs");
    EXPECT_EQ(log.All().at(4), "Gate 3: Local_time = Remote_time - 1183 hours, 2 minutes, 47.295+-0 seconds/ "
                               "Local_time = Remote_time - (4.25897e+09+-0)ms");
}

TEST_F(TimestampReply, EveryOriginateTimeHasAResult) {
    EXPECT_TRUE(Parse(test::GoodReply(Request(0xFFFF'FFFF), 0)));
    EXPECT_EQ(out.uncertainty, -2'129'483'647.5);
    EXPECT_EQ(out.difference, 2'165'483'647.5);
}

TEST_F(TimestampReply, RefusesAHeaderWithOptions) {
    EXPECT_FALSE(Parse(test::ReplyWithOptions(Request(kTen_ms), kTen_ms)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Wrong size packet read: 44"));
    EXPECT_EQ(probe.BadReply(), "Wrong size packet read: 44");
    EXPECT_EQ(out.uncertainty, -1.0);
}

TEST_F(TimestampReply, RefusesAShortReply) {
    EXPECT_FALSE(Parse(test::ShortReply(Request(kTen_ms), kTen_ms)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Wrong size packet read: 39"));
}

TEST_F(TimestampReply, RefusesAnEmptyRead) {
    EXPECT_FALSE(Parse({}));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Wrong size packet read: 0"));
}

TEST_F(TimestampReply, RefusesAnotherProtocolAndNamesItAsACharacter) {
    EXPECT_FALSE(Parse(test::ReplyOfProtocol(Request(kTen_ms), kTen_ms, 65)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Got packet for wrong protocol: A"));
    EXPECT_FALSE(Parse(test::ReplyOfProtocol(Request(kTen_ms), kTen_ms, 17)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Got packet for wrong protocol: \x11"));
    EXPECT_FALSE(Parse(test::ReplyOfProtocol(Request(kTen_ms), kTen_ms, 0)));
    EXPECT_EQ(log.All(), AfterClock(std::string("Gate 3: Got packet for wrong protocol: ") + '\0'));
    EXPECT_FALSE(Parse(test::ReplyOfProtocol(Request(kTen_ms), kTen_ms, 255)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Got packet for wrong protocol: \xFF"));
}

TEST_F(TimestampReply, RefusesAnotherType) {
    EXPECT_FALSE(Parse(test::ReplyOfType(Request(kTen_ms), kTen_ms, 13)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Error, got packet with type: 13 expected: 14"));
}

TEST_F(TimestampReply, RefusesAnotherIdentifier) {
    EXPECT_FALSE(Parse(test::ReplyWithOtherIdentifier(Request(kTen_ms), kTen_ms)));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Error, got packet with id: 17766 expected: 17767"));
}

TEST_F(TimestampReply, ComparesTheWholeIdentifierWithTheSixteenBitsRead) {
    const Bytes reply = test::GoodReply(Request(kTen_ms), kTen_ms);
    log.Drain();
    EXPECT_FALSE(probe.ParseTimestampReply(reply.data(), 40, 0x1'4567, out));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Error, got packet with id: 17767 expected: 83303"));
}

TEST_F(TimestampReply, ChecksSizeThenProtocolThenTypeThenIdentifier) {
    Bytes reply = test::ReplyWithOtherIdentifier(Request(kTen_ms), kTen_ms);
    reply[20] = 0;
    EXPECT_FALSE(Parse(reply));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Error, got packet with type: 0 expected: 14"));
    reply[9] = 'U';
    EXPECT_FALSE(Parse(reply));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Got packet for wrong protocol: U"));
    reply.push_back(0);
    EXPECT_FALSE(Parse(reply));
    EXPECT_EQ(log.All(), AfterClock("Gate 3: Wrong size packet read: 41"));
}

TEST_F(TimestampReply, DoesNotLookAtSequenceCodeChecksumOrHeaderLength) {
    Bytes reply = test::GoodReply(Request(kTen_ms), kTen_ms);
    reply[0] = 0x4F;
    reply[21] = 9;
    reply[22] ^= 0xFF;
    reply[26] ^= 0xFF;
    EXPECT_TRUE(Parse(reply));
    EXPECT_EQ(out.difference, 0.0);
    EXPECT_EQ(out.uncertainty, 0.0);
}

// ---- selection

void ExpectResult(const ProbeResult& result, double difference, double uncertainty) {
    EXPECT_EQ(result.difference, difference);
    EXPECT_EQ(result.uncertainty, uncertainty);
}

TEST(ShortestRoundTrip, OfNothingIsTheEmptyResult) {
    ExpectResult(SelectShortestRoundTrip({}, 300), 0.0, -1.0);
}

TEST(ShortestRoundTrip, TheSmallestUncertaintyWins) {
    ExpectResult(SelectShortestRoundTrip({{10.0, 3.0}, {20.0, 1.0}, {30.0, 2.0}}, 300), 20.0, 1.0);
}

TEST(ShortestRoundTrip, EqualOnesGiveTheMeanOfTheirDifferences) {
    ExpectResult(SelectShortestRoundTrip({{10.0, 1.5}, {99.0, 2.0}, {13.0, 1.5}}, 300), 11.5, 1.5);
}

TEST(ShortestRoundTrip, AShorterOneDiscardsThoseBefore) {
    ExpectResult(SelectShortestRoundTrip({{10.0, 2.0}, {12.0, 2.0}, {50.0, 0.0}}, 300), 50.0, 0.0);
}

TEST(ShortestRoundTrip, NegativeAndMissingUncertaintiesDoNotCount) {
    const double none = std::nan("");
    ExpectResult(SelectShortestRoundTrip({{10.0, -0.5}, {11.0, none}}, 300), 0.0, -1.0);
    ExpectResult(SelectShortestRoundTrip({{10.0, -0.5}, {11.0, none}, {12.0, 7.0}}, 300), 12.0, 7.0);
}

TEST(ShortestRoundTrip, TheTimeOutAndASecondIsStillKept) {
    ExpectResult(SelectShortestRoundTrip({{10.0, 1'300.0}, {12.0, 1'300.0}}, 300), 11.0, 1'300.0);
    ExpectResult(SelectShortestRoundTrip({{10.0, 1'300.5}}, 300), 0.0, -1.0);
}

TEST(ShortestRoundTrip, ATimeOutOfAnySignServes) {
    ExpectResult(SelectShortestRoundTrip({{10.0, 1.0}}, -2'000), 0.0, -1.0);
    ExpectResult(SelectShortestRoundTrip({{10.0, 1.0}}, (std::numeric_limits<int>::max)()), 10.0, 1.0);
}

// ---- whole days

class WholeDays : public testing::Test {
protected:
    bool Check(double difference, std::int64_t expected_ms) {
        log.Drain();
        result = {difference, 1.0};
        return probe.CheckAgainstExpected(result, expected_ms);
    }

    ManualCounter counter{kTen};
    MessageRecorder log = MessageRecorder({"RTSP.TimeProbe"});
    TimeProbe probe{"P "};
    ProbeResult result;
};

TEST_F(WholeDays, ANearEstimateIsAccepted) {
    EXPECT_FALSE(Check(10'004.75, 9'000));
    EXPECT_EQ(result.difference, 10'004.75);
    EXPECT_EQ(result.uncertainty, 1.0);
    EXPECT_EQ(
        log.All(),
        (Lines{"P Checking the results of ICMP probing with respect to expected time",
               "P Note for following that leap years and such are not accounted for correctly",
               "P Current remote time expected to be: 2023-11-15 09:59:51.000 UTC", "P Using D_hat:9000 [ms]",
               "P Initial estimate sets it to: 2023-11-15 09:59:49.996", "P Initial estimate accepted"}));
}

TEST_F(WholeDays, RemoteMidnightCrossedAddsADay) {
    EXPECT_TRUE(Check(-86'340'000.0, 0));
    EXPECT_EQ(result.difference, 60'000.0);
    EXPECT_EQ(
        log.All(),
        (Lines{"P Checking the results of ICMP probing with respect to expected time",
               "P Note for following that leap years and such are not accounted for correctly",
               "P Current remote time expected to be: 2023-11-15 10:00:00.000 UTC", "P Using D_hat:0 [ms]",
               "P Initial estimate sets it to: 2023-11-16 09:59:00.000", "P Adding 1 days to ICMP estimate",
               "P Final estimate sets it to: 2023-11-15 09:59:00.000", "P Final ICMP estimate: 60000 [ms]"}));
}

TEST_F(WholeDays, TwelveHoursRoundToTheNextDay) {
    EXPECT_TRUE(Check(43'200'000.0, 0));
    EXPECT_EQ(result.difference, -43'200'000.0);
    EXPECT_EQ(log.All().at(5), "P Adding -1 days to ICMP estimate");
    EXPECT_EQ(log.All().at(7), "P Final ICMP estimate: -43200000 [ms]");
    EXPECT_TRUE(Check(-43'200'000.0, 0));
    EXPECT_EQ(result.difference, 43'200'000.0);
}

TEST_F(WholeDays, LessThanTwelveHoursIsNoDay) {
    EXPECT_FALSE(Check(43'199'999.0, 0));
    EXPECT_FALSE(Check(-43'199'999.0, 0));
    EXPECT_FALSE(Check(43'200'000.9, 1));  // the estimate is truncated before it is compared
}

TEST_F(WholeDays, SeveralDaysAreAddedAtOnce) {
    EXPECT_TRUE(Check(250.5, 10 * 86'400'000LL + 43'200'250));
    EXPECT_EQ(result.difference, 11 * 86'400'000.0 + 250.5);
    EXPECT_TRUE(Check(0.0, -(3 * 86'400'000LL) - 1));
    EXPECT_EQ(result.difference, -3 * 86'400'000.0);
}

TEST_F(WholeDays, EveryNumberHasAResult) {
    for (const double difference : {0.0, 1e300, -1e300, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        for (const std::int64_t expected :
             {kMinInt64, std::int64_t{-1}, (std::numeric_limits<std::int64_t>::max)()})
            Check(difference, expected);
    }
    EXPECT_TRUE(Check(0.0, kMinInt64));
    EXPECT_EQ(log.All().at(3), "P Using D_hat:-9223372036854775808 [ms]");
    EXPECT_EQ(log.All().at(5), "P Adding -106751991167 days to ICMP estimate");
}

// ---- a whole probing

class TimeProbeRun : public testing::Test {
protected:
    void SetUp() override { ScriptedSockets::Reset(); }

    static ScriptedSockets& Script() { return ScriptedSockets::Now(); }

    /// The camera's clock stands `ahead_ms` before the host's; the reply takes `travel` to come back.
    void AnswerAt(std::int64_t ahead_ms, Ticks travel = Ticks(0)) {
        Script().answer = [this, ahead_ms, travel](const Bytes& request) {
            counter.Advance(travel);
            return std::vector<Incoming>{
                {test::GoodReply(request, static_cast<std::uint32_t>(kTen_ms + ahead_ms))}};
        };
    }

    ManualCounter counter{kTen};
    MessageRecorder log{{"RTSP.TimeProbe", "RTSP.RawSocket"}};
};

TEST_F(TimeProbeRun, WritesEveryStepInOrder) {
    AnswerAt(-10'000, 8ms);
    {
        TimeProbe probe("Gate 3: ");
        const ProbeResult result = probe.Probe("camera", 1, 300, 9'000);
        ExpectResult(result, 10'004.0, 4.0);
    }
    EXPECT_EQ(
        log.All(),
        (Lines{
            "Initialising Winsock...",
            "Initialised successfully.",
            "Gate 3: Probing camera 1 times, with timeout 300ms",  //
            "Resolving address...",
            "Host adress set to: 10.77.0.2 port: 0",
            "Creating Raw TCP Socket...",
            "Raw TCP Socket Created successfully.",  //
            "Now: 2023-11-15 10:00:00.000",
            "Midnight: 2023-11-15 00:00:00.000",
            "Sending packet...",
            "Packet sent.",
            "Reading data...",
            "Bytes read: 40",
            "Now: 2023-11-15 10:00:00.008",
            "Midnight: 2023-11-15 00:00:00.000",
            "Gate 3: Remote timestamp: 2023-11-15 09:59:50.000 seconds after midnight UTC (35990000) millisecs",
            "Gate 3: Corresponding Local: 2023-11-15 10:00:00.004 UTC",
            "Gate 3: Local_time = Remote_time + 0 hours, 0 minutes, 10.004+-0.004 seconds/ Local_time = "
            "Remote_time + (10004+-4)ms",
            "Releasing socket.",  //
            "Gate 3: Checking the results of ICMP probing with respect to expected time",
            "Gate 3: Note for following that leap years and such are not accounted for correctly",
            "Gate 3: Current remote time expected to be: 2023-11-15 09:59:51.008 UTC",
            "Gate 3: Using D_hat:9000 [ms]",
            "Gate 3: Initial estimate sets it to: 2023-11-15 09:59:50.004",
            "Gate 3: Initial estimate accepted",  //
            "Releasing Winsock."}));
}

TEST_F(TimeProbeRun, SendsTwentyBytesARequest) {
    AnswerAt(0);
    TimeProbe probe("");
    probe.Probe("camera", 3, 300, 0);
    probe.Probe("camera", 2, 250, 0);
    ASSERT_EQ(Script().sent.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        const Bytes& request = Script().sent[i].bytes;
        ASSERT_EQ(request.size(), 20u);
        EXPECT_EQ(request[0], 13);
        EXPECT_EQ(request[1], 0);
        EXPECT_EQ(Word(request, 6), i) << "the sequence goes on from one probing to the next";
        EXPECT_EQ(Word(request, 8) | std::uint32_t{Word(request, 10)} << 16, kTen_ms);
        EXPECT_EQ(Bytes(request.begin() + 12, request.end()), Bytes(8, 0));
        std::uint32_t sum = 0;
        for (std::size_t offset = 0; offset < 20; offset += 2)
            sum += Word(request, offset);
        EXPECT_EQ((sum >> 16) + (sum & 0xFFFF), 0xFFFFu);
    }
    EXPECT_EQ(Script().waits_ms, (std::vector<std::uint32_t>{300, 300, 300, 250, 250}));
    EXPECT_EQ(Script().opened, 2);
    EXPECT_EQ(Script().closed, 2);
    EXPECT_EQ(Script().startUps, 1);
}

TEST_F(TimeProbeRun, TheIdentifierIsASixteenBitRandomNumber) {
    TimeProbe probe("");
    AnswerAt(0);
    std::srand(1);
    probe.Probe("camera", 5, 300, 0);
    std::srand(1);
    for (const ScriptedSockets::Sent& sent : Script().sent)
        EXPECT_EQ(Word(sent.bytes, 4), static_cast<unsigned>(std::rand()) & 0xFFFF);
}

TEST_F(TimeProbeRun, NoRequestsMakeAndReleaseASocketAllTheSame) {
    for (const int count : {0, -1}) {
        TimeProbe probe("P ");
        log.Drain();
        ExpectResult(probe.Probe("camera", count, 300, 0), 0.0, -1.0);
        EXPECT_EQ(log.All(),
                  (Lines{"P Probing camera " + std::to_string(count) + " times, with timeout 300ms",
                         "Resolving address...", "Host adress set to: 10.77.0.2 port: 0",
                         "Creating Raw TCP Socket...", "Raw TCP Socket Created successfully.",
                         "Releasing socket.", "P No ICMP returned gracefully"}));
    }
}

TEST_F(TimeProbeRun, WithoutASocketTheResultIsEmpty) {
    Script().opens = false;
    TimeProbe probe("P ");
    log.Drain();
    ExpectResult(probe.Probe("camera", 5, 300, 77), 0.0, -1.0);
    EXPECT_EQ(
        log.All(),
        (Lines{"P Probing camera 5 times, with timeout 300ms", "Resolving address...",
               "Host adress set to: 10.77.0.2 port: 0", "Creating Raw TCP Socket...",
               "Creation of raw socket failed. (Running with administrtative priveleges is required.)"}));
}

TEST_F(TimeProbeRun, WithoutAnAddressTheResultIsEmpty) {
    TimeProbe probe("P ");
    log.Drain();
    ExpectResult(probe.Probe("nobody", 5, 300, 77), 0.0, -1.0);
    EXPECT_EQ(log.All(), (Lines{"P Probing nobody 5 times, with timeout 300ms", "Resolving address...",
                                "Error resolving hostname."}));
}

TEST_F(TimeProbeRun, ASilentCameraCostsOneTimeOutARequest) {
    TimeProbe probe("P ");
    log.Drain();
    ExpectResult(probe.Probe("camera", 2, 300, 77), 0.0, -1.0);
    EXPECT_EQ(Script().waits_ms, (std::vector<std::uint32_t>{300, 300}));
    const Lines request{"Now: 2023-11-15 10:00:00.000", "Midnight: 2023-11-15 00:00:00.000",
                        "Sending packet...", "Packet sent.", "WaitForReadyRead Timeout"};
    Lines expected{"P Probing camera 2 times, with timeout 300ms", "Resolving address...",
                   "Host adress set to: 10.77.0.2 port: 0", "Creating Raw TCP Socket...",
                   "Raw TCP Socket Created successfully."};
    expected.insert(expected.end(), request.begin(), request.end());
    expected.insert(expected.end(), request.begin(), request.end());
    expected.insert(expected.end(), {"Releasing socket.", "P No ICMP returned gracefully"});
    EXPECT_EQ(log.All(), expected);
}

TEST_F(TimeProbeRun, AFailedSendDropsItsRequestOnly) {
    AnswerAt(0);
    Script().sendError = 10065;
    Script().answer = [](const Bytes&) { return std::vector<Incoming>{}; };
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 3, 300, 0), 0.0, -1.0);
    EXPECT_EQ(Script().sent.size(), 3u);
    EXPECT_TRUE(Script().waits_ms.empty());
    Script().sendError = 0;
    AnswerAt(0);
    ExpectResult(probe.Probe("camera", 1, 300, 0), 0.0, 0.0);
    EXPECT_EQ(Word(Script().sent.back().bytes, 6), 3) << "a failed request has used its number";
}

TEST_F(TimeProbeRun, AReadErrorIsAWrongSize) {
    Script().answer = [](const Bytes&) { return std::vector<Incoming>{{{}, test::kCameraIp, 10054}}; };
    TimeProbe probe("P ");
    ExpectResult(probe.Probe("camera", 1, 300, 0), 0.0, -1.0);
    const Lines all = log.All();
    EXPECT_EQ(log.Count("Error reading reply : 10054"), 1u);
    EXPECT_EQ(log.Count("P Wrong size packet read: 4294967295"), 1u);
}

TEST_F(TimeProbeRun, ADatagramOfMoreThan500BytesIsAReadError) {
    Script().answer = [](const Bytes&) { return std::vector<Incoming>{{Bytes(501, 0)}}; };
    TimeProbe probe("P ");
    ExpectResult(probe.Probe("camera", 1, 300, 0), 0.0, -1.0);
    EXPECT_EQ(log.Count("Error reading reply : 10040"), 1u);
    EXPECT_EQ(log.Count("buffer too small"), 1u);
    EXPECT_EQ(log.Count("P Wrong size packet read: 4294967295"), 1u);
}

TEST_F(TimeProbeRun, ADatagramOf500BytesIsReadWhole) {
    Script().answer = [](const Bytes&) { return std::vector<Incoming>{{Bytes(500, 0)}}; };
    TimeProbe probe("P ");
    ExpectResult(probe.Probe("camera", 1, 300, 0), 0.0, -1.0);
    EXPECT_EQ(log.Count("P Wrong size packet read: 500"), 1u);
}

TEST_F(TimeProbeRun, ForeignIcmpSpoilsTheRequestAndTheOnesBehindIt) {
    // The echo reply is read in place of the answer, which is then read in place of the next one.
    Script().answer = [first = true](const Bytes& request) mutable {
        std::vector<Incoming> arrivals;
        if (std::exchange(first, false))
            arrivals.push_back({test::ReplyOfType(request, 0, 0)});
        arrivals.push_back({test::GoodReply(request, kTen_ms)});
        return arrivals;
    };
    TimeProbe probe("P ");
    std::srand(1);
    ExpectResult(probe.Probe("camera", 3, 300, 0), 0.0, -1.0);
    EXPECT_EQ(log.Count("P Error, got packet with type: 0 expected: 14"), 1u);
    std::srand(1);
    const auto id = [] { return std::to_string(std::rand() & 0xFFFF); };
    const std::string first = id();
    const std::string second = id();
    const std::string third = id();
    EXPECT_EQ(log.Count("P Error, got packet with id: " + first + " expected: " + second), 1u);
    EXPECT_EQ(log.Count("P Error, got packet with id: " + second + " expected: " + third), 1u);
    EXPECT_EQ(log.Count("P No ICMP returned gracefully"), 1u);
}

TEST_F(TimeProbeRun, TheShortestRoundTripIsTaken) {
    Script().answer = [this, n = 0](const Bytes& request) mutable {
        constexpr std::chrono::milliseconds kTravel[] = {20ms, 6ms, 40ms, 6ms, 10ms};
        const auto sent_ms = static_cast<std::uint32_t>((counter.Now() - kMidnight) / 1ms);
        const std::uint32_t camera_ms = sent_ms - (n == 1 ? 1'000u : 1'003u);
        counter.Advance(kTravel[n++]);
        return std::vector<Incoming>{{test::GoodReply(request, camera_ms)}};
    };
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 5, 300, 0), (1'003.0 + 1'006.0) / 2, 3.0);
}

TEST_F(TimeProbeRun, ARequestOverMidnightIsLeftOut) {
    // 23:59:59.900 to 00:00:00.050, then 00:00:00.050 to 00:00:00.060.
    const ManualCounter night(kMidnight + 86'399'900ms);
    Script().answer = [&, first = true](const Bytes& request) mutable {
        counter.Advance(first ? Ticks(150ms) : Ticks(10ms));
        return std::vector<Incoming>{
            {test::GoodReply(request, std::exchange(first, false) ? 86'399'975 : 55)}};
    };
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 2, 300, 0), 0.0, 5.0);
}

TEST_F(TimeProbeRun, ACameraOnAnotherDayIsSetByTheExpectedDifference) {
    AnswerAt(-60'000);
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 1, 300, 2 * 86'400'000LL), 2 * 86'400'000.0 + 60'000.0, 0.0);
}

TEST_F(TimeProbeRun, ALateReplyHasALargeUncertainty) {
    AnswerAt(0, 299ms);
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 1, 300, 0), 149.5, 149.5);
}

TEST_F(TimeProbeRun, ATimeOutOfNegativeMillisecondsIsAWaitOfItsUnsignedValue) {
    TimeProbe probe("");
    probe.Probe("camera", 1, -1, 0);
    EXPECT_EQ(Script().waits_ms, (std::vector<std::uint32_t>{4'294'967'295u}));
}

TEST_F(TimeProbeRun, TheNextRequestGoesToWhoAnsweredLast) {
    Script().answer = [](const Bytes& request) {
        return std::vector<Incoming>{{test::GoodReply(request, kTen_ms), {10, 77, 0, 9}}};
    };
    TimeProbe probe("");
    probe.Probe("camera", 2, 300, 0);
    probe.Probe("camera", 1, 300, 0);
    EXPECT_EQ(Script().sent.at(0).to.ip, test::kCameraIp);
    EXPECT_EQ(Script().sent.at(1).to.ip, (test::Ip{10, 77, 0, 9}));
    EXPECT_EQ(Script().sent.at(2).to.ip, test::kCameraIp) << "each probing resolves its host again";
}

TEST_F(TimeProbeRun, ClosedCategoriesChangeNoResult) {
    for (const char* const name : {"RTSP.TimeProbe", "RTSP.RawSocket"})
        log4cpp::Category::getInstance(name).setPriority(log4cpp::Priority::NOTICE);
    AnswerAt(-10'000, 8ms);
    TimeProbe probe("");
    ExpectResult(probe.Probe("camera", 1, 300, 86'400'000), 86'410'004.0, 4.0);
    EXPECT_EQ(log.All(), Lines{});
}

}  // namespace
}  // namespace camclock
