// The probe over real sockets: two network namespaces, with the kernel of the
// second or a scripted camera there.
#include "probe/TimeProbe.h"

#include "MessageRecorder.h"
#include "support/IcmpReplies.h"
#include "support/ManualCounter.h"
#include "support/NetworkNamespaces.h"
#include "support/ScriptedCamera.h"
#include "support/TemporaryDirectory.h"

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

namespace camclock {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::ManualCounter;
using test::MessageRecorder;
using test::ScriptedCamera;
using test::TwoNamespaces;
using Lines = std::vector<std::string>;

constexpr TimePoint kMidnight(Ticks(1'700'006'400LL * 10'000'000));  // 2023-11-15 00:00:00 UTC
constexpr TimePoint kTen = kMidnight + 10h;
constexpr std::uint32_t kTen_ms = 36'000'000;
constexpr int kPatience_ms = 20'000;  // for what will come; a loaded machine takes its time

class Network : public testing::Test {
protected:
    void SetUpNetwork(TwoNamespaces::Camera camera) {
        std::string whyNot;
        network = TwoNamespaces::Make(camera, whyNot);
        if (!network)
            GTEST_SKIP() << whyNot;
    }

    /// The number that the next file or socket will get.
    static int NextDescriptor() {
        const int next = dup(0);
        close(next);
        return next;
    }

    std::unique_ptr<TwoNamespaces> network;
};

void ExpectResult(const ProbeResult& result, double difference, double uncertainty) {
    EXPECT_EQ(result.difference, difference);
    EXPECT_EQ(result.uncertainty, uncertainty);
}

// ---- the kernel of the other namespace as a camera

class PlainKernel : public Network {
protected:
    void SetUp() override { SetUpNetwork(TwoNamespaces::Camera::kPlainKernel); }
    void TearDown() override { Utilities::getInstance().AnchorToSystemClock(); }

    /// Puts the host's clock `difference` before the system clock, which the camera has.
    static void SetHostClock(std::chrono::milliseconds difference) {
        // Both clocks are read at one instant: a thread that was put aside between the readings reads again.
        std::int64_t before = 0;
        std::int64_t after = 0;
        TimePoint now{};
        do {
            before = Utilities::GetCounter();
            now = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
            after = Utilities::GetCounter();
        } while (after - before > Utilities::GetCounterFrequency() / 10'000);
        Utilities::getInstance().ResetTime(now + difference, after);
    }

    /// Half the round trip and the clocks' granularity of 2.5 ms: each of the host's two readings is rounded
    /// to the nearest millisecond and then truncated to one, the camera's is truncated.
    static void ExpectWithinBound(const ProbeResult& result, double truth_ms) {
        ASSERT_GE(result.uncertainty, 0.0);
        EXPECT_LE(std::fabs(result.difference - truth_ms), result.uncertainty + 2.5);
    }
};

TEST_F(PlainKernel, IsMeasuredWithinTheBoundWhateverTheDifference) {
    const std::chrono::milliseconds differences[] = {
        0ms, 1ms, -1ms, 3'723'500ms, -3'723'500ms, 12h, -12h + 1s, 23h + 59min, -24h, 365 * 24h + 7h, -1001h};
    TimeProbe probe("");
    for (const std::chrono::milliseconds difference : differences) {
        SetHostClock(difference);
        // What is expected may be wrong by some hours: it only tells the day.
        for (const std::chrono::milliseconds error : {0ms, 36'000'000ms, -36'000'000ms}) {
            SCOPED_TRACE(std::to_string(difference.count()) + " expected with an error of " +
                         std::to_string(error.count()));
            ExpectWithinBound(probe.Probe("10.77.0.2", 5, kPatience_ms, (difference + error).count()),
                              static_cast<double>(difference.count()));
        }
    }
}

TEST_F(PlainKernel, IsMeasuredByTheProbingThread) {
    const test::TemporaryDirectory directory;
    SetHostClock(3'723'500ms);
    const MessageRecorder log = MessageRecorder({"RTSP.TimeFilter"});
    {
        TimeFilter filter;
        filter.UseICMP("10.77.0.2", 0s, directory.Name(), true);
        filter.CheckPollDifference(3'600'000ms);
        ASSERT_TRUE(log.WaitFor("Using results of a successful ICMP probing", 3));
        EXPECT_TRUE(filter.DIsLocked());
        EXPECT_TRUE(filter.IsUsingProbe());
        filter.CloseTimeProbing();
        EXPECT_LE(std::abs(filter.GetD().count() - 3'723'500),
                  static_cast<double>(filter.GetD_uncert().count()) / 1000.0 + 3.5);
    }
    const std::string rows = directory.Read("probelog.txt");
    EXPECT_GE(std::count(rows.begin(), rows.end(), '\n'), 5);
}

TEST_F(PlainKernel, AnswersLeaveTheseMessages) {
    const ManualCounter counter(kTen);
    MessageRecorder log = MessageRecorder({"RTSP.RawSocket"});
    {
        TimeProbe probe("");
        EXPECT_GE(probe.Probe("10.77.0.2", 2, kPatience_ms, 0).uncertainty, 0.0);
    }
    // A raw socket is never connected, and shutdown says so on Linux.
    EXPECT_EQ(log.All(), (Lines{"Initialising Winsock...", "Initialised successfully.",
                                "Resolving address...", "Host adress set to: 10.77.0.2 port: 0",
                                "Creating Raw TCP Socket...", "Raw TCP Socket Created successfully.",
                                "Sending packet...", "Packet sent.", "Reading data...", "Bytes read: 40",
                                "Sending packet...", "Packet sent.", "Reading data...", "Bytes read: 40",
                                "Releasing socket.", "Error shutting down socket", "Releasing Winsock."}));
}

TEST_F(PlainKernel, SeveralCamerasAreProbedOneAfterTheOther) {
    SetHostClock(5'000ms);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int camera = 0; camera < 4; ++camera) {
        threads.emplace_back([&good, camera] {
            TimeProbe probe("");
            const ProbeResult result =
                probe.Probe(camera % 2 == 0 ? "10.77.0.2" : "10.77.0.9", 5, kPatience_ms, 5'000);
            // Had the exchanges overlapped, each socket would have read the others' replies first.
            if (result.uncertainty >= 0.0 &&
                std::fabs(result.difference - 5'000.0) <= result.uncertainty + 2.5)
                ++good;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 4);
}

TEST_F(PlainKernel, CannotBeProbedWithoutTheRight) {
    // Capabilities belong to a thread, so that one can give them up for itself.
    std::thread([] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2]{};
        ASSERT_EQ(syscall(SYS_capset, &header, &none), 0);
        MessageRecorder log{{"RTSP.RawSocket", "RTSP.TimeProbe"}};
        TimeProbe probe("P ");
        log.Drain();
        ExpectResult(probe.Probe("10.77.0.2", 5, kPatience_ms, 77), 0.0, -1.0);
        EXPECT_EQ(
            log.All(),
            (Lines{"P Probing 10.77.0.2 5 times, with timeout 20000ms", "Resolving address...",
                   "Host adress set to: 10.77.0.2 port: 0", "Creating Raw TCP Socket...",
                   "Creation of raw socket failed. (Running with administrtative priveleges is required.)"}));
    }).join();
}

TEST_F(PlainKernel, BehindMoreThanAThousandDescriptorsIsStillWaitedFor) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit more{std::max<rlim_t>(limit.rlim_cur, 2'048), std::max<rlim_t>(limit.rlim_max, 2'048)};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
    std::vector<int> descriptors;
    while (descriptors.empty() || descriptors.back() < 1'100) {
        descriptors.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_GE(descriptors.back(), 0);
    }
    TimeProbe probe("");
    EXPECT_GE(probe.Probe("10.77.0.2", 3, kPatience_ms, 0).uncertainty, 0.0);
    for (const int descriptor : descriptors)
        close(descriptor);
}

// ---- a scripted camera

class Scripted : public Network {
protected:
    void SetUp() override { SetUpNetwork(TwoNamespaces::Camera::kNobody); }

    void Start(ScriptedCamera::Script script) {
        camera = std::make_unique<ScriptedCamera>(*network, std::move(script));
    }

    /// One request under the clock of `counter`, with the camera answering as the script says.
    ProbeResult ProbeOnce(std::uint32_t timeout_ms = kPatience_ms) {
        return probe.Probe("10.77.0.2", 1, static_cast<int>(timeout_ms), 0);
    }

    static std::uint16_t Word(const Bytes& bytes, std::size_t offset) {
        std::uint16_t value;
        std::memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }

    ManualCounter counter{kTen};
    MessageRecorder log{{"RTSP.TimeProbe", "RTSP.RawSocket"}};
    TimeProbe probe{"P "};
    std::unique_ptr<ScriptedCamera> camera;
};

TEST_F(Scripted, SeesOneDatagramOfTwentyBytesARequest) {
    Start([](const Bytes& request) { return std::vector<Bytes>{test::GoodReply(request, kTen_ms)}; });
    std::srand(1);
    ExpectResult(probe.Probe("10.77.0.2", 5, kPatience_ms, 0), 0.0, 0.0);
    std::srand(1);
    const std::vector<Bytes> received = camera->Received();
    ASSERT_EQ(received.size(), 5u);
    for (std::size_t i = 0; i < received.size(); ++i) {
        ASSERT_EQ(received[i].size(), 40u);
        EXPECT_EQ(Bytes(received[i].begin() + 12, received[i].begin() + 20),
                  (Bytes{10, 77, 0, 1, 10, 77, 0, 2}));
        Bytes expected(20, 0);
        const auto identifier = static_cast<std::uint16_t>(std::rand() & 0xFFFF);
        const auto sequence = static_cast<std::uint16_t>(i);
        expected[0] = 13;
        std::memcpy(&expected[4], &identifier, 2);
        std::memcpy(&expected[6], &sequence, 2);
        std::memcpy(&expected[8], &kTen_ms, 4);
        test::PutChecksum(expected, 0, 20, 2);
        EXPECT_EQ(Bytes(received[i].begin() + 20, received[i].end()), expected);
    }
}

TEST_F(Scripted, OffsetAndRoundTripAreMeasured) {
    Start([this](const Bytes& request) {
        counter.Advance(12ms);
        return std::vector<Bytes>{test::GoodReply(request, kTen_ms - 3'723'500)};
    });
    ExpectResult(ProbeOnce(), 3'723'506.0, 6.0);
}

TEST_F(Scripted, SilenceIsWaitedForOncePerRequest) {
    Start(nullptr);
    ExpectResult(probe.Probe("10.77.0.2", 3, 5, 0), 0.0, -1.0);
    EXPECT_EQ(log.Count("WaitForReadyRead Timeout"), 3u);
    EXPECT_EQ(log.Count("P No ICMP returned gracefully"), 1u);
    EXPECT_EQ(camera->Received().size(), 3u);
}

TEST_F(Scripted, ALateReplyIsTheNextRequestsWrongOne) {
    Start([earlier = Bytes()](const Bytes& request) mutable {
        const Bytes late = std::exchange(earlier, request);
        return late.empty() ? std::vector<Bytes>{} : std::vector<Bytes>{test::GoodReply(late, kTen_ms)};
    });
    std::srand(1);
    TimeProbe patient("P ");
    ASSERT_TRUE(patient.CreateSocket("10.77.0.2", 0));
    ProbeResult result;
    EXPECT_FALSE(patient.ProbeOnce(0, 5, result));
    EXPECT_FALSE(patient.ProbeOnce(1, kPatience_ms, result));
    std::srand(1);
    const std::string first = std::to_string(std::rand() & 0xFFFF);
    const std::string second = std::to_string(std::rand() & 0xFFFF);
    EXPECT_EQ(log.Count("P Error, got packet with id: " + first + " expected: " + second), 1u);
    EXPECT_EQ(result.uncertainty, -1.0);
}

TEST_F(Scripted, AHeaderWithOptionsIsRefused) {
    Start([](const Bytes& request) { return std::vector<Bytes>{test::ReplyWithOptions(request, kTen_ms)}; });
    ExpectResult(ProbeOnce(), 0.0, -1.0);
    EXPECT_EQ(log.Count("Bytes read: 44"), 1u);
    EXPECT_EQ(log.Count("P Wrong size packet read: 44"), 1u);
}

TEST_F(Scripted, AShortReplyIsRefused) {
    Start([](const Bytes& request) { return std::vector<Bytes>{test::ShortReply(request, kTen_ms)}; });
    ExpectResult(ProbeOnce(), 0.0, -1.0);
    EXPECT_EQ(log.Count("P Wrong size packet read: 39"), 1u);
}

TEST_F(Scripted, AnotherTypeIsRefused) {
    Start([](const Bytes& request) { return std::vector<Bytes>{test::ReplyOfType(request, kTen_ms, 3)}; });
    ExpectResult(ProbeOnce(), 0.0, -1.0);
    EXPECT_EQ(log.Count("P Error, got packet with type: 3 expected: 14"), 1u);
}

TEST_F(Scripted, AnotherIdentifierIsRefused) {
    Start([](const Bytes& request) {
        return std::vector<Bytes>{test::ReplyWithOtherIdentifier(request, kTen_ms)};
    });
    std::srand(1);
    ExpectResult(ProbeOnce(), 0.0, -1.0);
    std::srand(1);
    const int identifier = std::rand() & 0xFFFF;
    EXPECT_EQ(log.Count("P Error, got packet with id: " + std::to_string(identifier ^ 1) +
                        " expected: " + std::to_string(identifier)),
              1u);
}

TEST_F(Scripted, AnotherProtocolNeverReachesTheSocket) {
    Start(
        [](const Bytes& request) { return std::vector<Bytes>{test::ReplyOfProtocol(request, kTen_ms, 17)}; });
    ExpectResult(ProbeOnce(20), 0.0, -1.0);
    EXPECT_EQ(log.Count("WaitForReadyRead Timeout"), 1u);
}

TEST_F(Scripted, ForeignIcmpSpoilsARequest) {
    Start([first = true](const Bytes& request) mutable {
        std::vector<Bytes> datagrams;
        if (std::exchange(first, false))
            datagrams.push_back(test::ReplyOfType(request, kTen_ms, 0));
        datagrams.push_back(test::GoodReply(request, kTen_ms));
        return datagrams;
    });
    ExpectResult(probe.Probe("10.77.0.2", 2, kPatience_ms, 0), 0.0, -1.0);
    EXPECT_EQ(log.Count("P Error, got packet with type: 0 expected: 14"), 1u);
    // A new socket gets the answers that are still on their way, and then its own.
    ProbeResult result;
    while (result.uncertainty < 0.0)
        result = probe.Probe("10.77.0.2", 2, kPatience_ms, 0);
    ExpectResult(result, 0.0, 0.0);
}

TEST_F(Scripted, ADatagramLargerThanTheBufferIsAReadError) {
    Start([](const Bytes& request) {
        Bytes message = test::ReplyMessage(request, kTen_ms);
        message.resize(481, 0);  // 501 bytes with its header
        return std::vector<Bytes>{test::Datagram(test::kCameraIp, test::kHostIp, test::kIcmp, message)};
    });
    ExpectResult(ProbeOnce(), 0.0, -1.0);
    EXPECT_EQ(log.Count("Error reading reply : " + std::to_string(EMSGSIZE)), 1u);
    EXPECT_EQ(log.Count("buffer too small"), 1u);
    EXPECT_EQ(log.Count("P Wrong size packet read: 4294967295"), 1u);
}

TEST_F(Scripted, EveryHostileDatagramIsRefused) {
    // Random bytes of any length behind a header that the kernel lets pass.
    Start([state = 1u](const Bytes&) mutable {
        Bytes message(8 + state % 600);
        for (std::uint8_t& byte : message) {
            state = state * 1'664'525u + 1'013'904'223u;
            byte = static_cast<std::uint8_t>(state >> 24);
        }
        message[0] = 14;
        return std::vector<Bytes>{test::Datagram(test::kCameraIp, test::kHostIp, test::kIcmp, message)};
    });
    ExpectResult(probe.Probe("10.77.0.2", 200, kPatience_ms, 0), 0.0, -1.0);
}

TEST_F(Scripted, TheShortestRoundTripIsTaken) {
    Start([this, n = 0](const Bytes& request) mutable {
        constexpr std::chrono::milliseconds kTravel[] = {20ms, 6ms, 40ms, 6ms, 10ms};
        const auto sent_ms = static_cast<std::uint32_t>((counter.Now() - kMidnight) / 1ms);
        const std::uint32_t camera_ms = sent_ms - (n == 1 ? 1'000u : 1'003u);
        counter.Advance(kTravel[n++]);
        return std::vector<Bytes>{test::GoodReply(request, camera_ms)};
    });
    ExpectResult(probe.Probe("10.77.0.2", 5, kPatience_ms, 0), 1'004.5, 3.0);
}

TEST_F(Scripted, ARequestOverMidnightIsLeftOut) {
    const ManualCounter night(kMidnight + 86'399'900ms);
    Start([this, first = true](const Bytes& request) mutable {
        counter.Advance(first ? Ticks(150ms) : Ticks(10ms));
        return std::vector<Bytes>{test::GoodReply(request, std::exchange(first, false) ? 86'399'975 : 55)};
    });
    ExpectResult(probe.Probe("10.77.0.2", 2, kPatience_ms, 0), 0.0, 5.0);
}

TEST_F(Scripted, ACameraBeforeMidnightIsNotADayAhead) {
    // Host 00:00:00.000 of the 15th, camera 23:59:00.000 of the 14th.
    const ManualCounter midnight(kMidnight);
    Start([](const Bytes& request) { return std::vector<Bytes>{test::GoodReply(request, 86'340'000)}; });
    ExpectResult(ProbeOnce(), 60'000.0, 0.0);
    EXPECT_EQ(log.Count("P Adding 1 days to ICMP estimate"), 1u);
}

TEST_F(Scripted, ACameraOnAnotherDayIsSetByTheExpectedDifference) {
    Start(
        [](const Bytes& request) { return std::vector<Bytes>{test::GoodReply(request, kTen_ms - 60'000)}; });
    ExpectResult(probe.Probe("10.77.0.2", 1, kPatience_ms, -7 * 86'400'000LL), -7 * 86'400'000.0 + 60'000.0,
                 0.0);
}

TEST_F(Scripted, TheNextRequestGoesToWhoAnsweredLast) {
    Start([](const Bytes& request) {
        return std::vector<Bytes>{
            test::Datagram({10, 77, 0, 9}, test::kHostIp, test::kIcmp, test::ReplyMessage(request, kTen_ms))};
    });
    ExpectResult(probe.Probe("10.77.0.2", 2, kPatience_ms, 0), 0.0, 0.0);
    const std::vector<Bytes> received = camera->Received();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0][19], 2);
    EXPECT_EQ(received[1][19], 9);
}

TEST_F(Scripted, TheProbingThreadGivesUpOnAHostileCamera) {
    Start([](const Bytes& request) { return std::vector<Bytes>{test::ReplyOfType(request, kTen_ms, 0)}; });
    const MessageRecorder filterLog = MessageRecorder({"RTSP.TimeFilter"});
    TimeFilter filter;
    filter.UseICMP("10.77.0.2", 0s, "", false);
    filter.CheckPollDifference(400ms);
    ASSERT_TRUE(filterLog.WaitFor("Exiting time probe thread"));
    EXPECT_EQ(filter.GetD(), 400ms);
    EXPECT_EQ(camera->Received().size(), 55u);
}

// ---- one socket

class OneSocket : public Scripted {
protected:
    void SetUp() override {
        Scripted::SetUp();
        if (network)
            log.Drain();
    }

    const Bytes message = Bytes(20, 0);  // Linux looks at the first two bytes of what is sent
    RawSocket socket;
};

TEST_F(OneSocket, TakesShortFormsOfAnAddress) {
    EXPECT_TRUE(socket.ResolveAddress("127.1", 0));
    EXPECT_TRUE(socket.ResolveAddress("10.77.258", 65'535));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 127.0.0.1 port: 0",
                                "Resolving address...", "Host adress set to: 10.77.1.2 port: 65535"}));
}

TEST_F(OneSocket, LooksTheBroadcastAddressUpByName) {
    std::array<std::uint8_t, 4> ip{};
    EXPECT_FALSE(sockets::ParseAddress("255.255.255.255", ip));
    EXPECT_TRUE(socket.ResolveAddress("255.255.255.255", 0));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 255.255.255.255 port: 0"}));
}

TEST_F(OneSocket, LooksNamesUp) {
    EXPECT_TRUE(socket.ResolveAddress("localhost", 0));
    EXPECT_FALSE(socket.ResolveAddress("", 0));
    EXPECT_FALSE(socket.ResolveAddress("not a name", 0));
    EXPECT_EQ(log.All(),
              (Lines{"Resolving address...", "Host adress set to: 127.0.0.1 port: 0", "Resolving address...",
                     "Error resolving hostname.", "Resolving address...", "Error resolving hostname."}));
}

TEST_F(OneSocket, TellsThatThereIsNoRoute) {
    ASSERT_TRUE(socket.CreateSocket("10.99.0.1", 0));
    log.Drain();
    EXPECT_FALSE(socket.Write(message.data(), message.size()));
    EXPECT_EQ(log.All(), (Lines{"Sending packet...", "Error sending Packet : " + std::to_string(ENETUNREACH),
                                "Packet sent."}));
}

TEST_F(OneSocket, TellsThatADatagramIsTooLong) {
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    log.Drain();
    const Bytes data(70'000, 0);
    EXPECT_FALSE(socket.Write(data.data(), data.size()));
    EXPECT_EQ(log.All().at(1), "Error sending Packet : " + std::to_string(EMSGSIZE));
}

TEST_F(OneSocket, PollsWithoutWaiting) {
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    EXPECT_FALSE(socket.WaitForReadyRead(0));
}

TEST_F(OneSocket, AnOpenOneIsKept) {
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    const int next = NextDescriptor();
    log.Drain();
    EXPECT_TRUE(socket.CreateSocket("10.77.0.9", 0));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 10.77.0.9 port: 0",
                                "Creating Raw TCP Socket...", "Socket already exists."}));
    EXPECT_EQ(NextDescriptor(), next);
}

TEST_F(OneSocket, IsNotInheritedByPrograms) {
    const int descriptor = NextDescriptor();
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    socket.ReleaseSocket();
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(OneSocket, ClosedBehindItsBackItTellsEveryError) {
    const int descriptor = NextDescriptor();
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    close(descriptor);
    log.Drain();
    char buffer[4];
    EXPECT_FALSE(socket.Write(message.data(), message.size()));
    EXPECT_TRUE(socket.WaitForReadyRead(kPatience_ms));
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), -1);
    socket.ReleaseSocket();
    socket.ReleaseSocket();
    const std::string badDescriptor = std::to_string(EBADF);
    EXPECT_EQ(log.All(),
              (Lines{"Sending packet...", "Error sending Packet : " + badDescriptor, "Packet sent.",
                     "Reading data...", "Error reading reply : " + badDescriptor,  //
                     "Releasing socket.", "Error shutting down socket",
                     "closesocket failed with error = " + badDescriptor,  //
                     "Releasing socket.", "Error shutting down socket",
                     "closesocket failed with error = " + badDescriptor}));
}

TEST_F(OneSocket, SignalsNeitherEndNorShortenAWait) {
    struct sigaction ignore {};
    ignore.sa_handler = [](int) {};  // without SA_RESTART
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, &before), 0);
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    std::atomic<bool> waiting{true};
    const pthread_t waiter = pthread_self();
    std::thread signals([&] {
        while (waiting) {
            pthread_kill(waiter, SIGUSR1);
            std::this_thread::yield();
        }
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(socket.WaitForReadyRead(50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    waiting = false;
    signals.join();
    sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace camclock
