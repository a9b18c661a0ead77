#include "probe/RawSocket.h"

#include "MessageRecorder.h"
#include "ScriptedSockets.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>

namespace camclock {
namespace {

using test::Bytes;
using test::MessageRecorder;
using test::ScriptedSockets;
using Lines = std::vector<std::string>;

class RawSocketSteps : public testing::Test {
protected:
    void SetUp() override { ScriptedSockets::Reset(); }

    static ScriptedSockets& Script() { return ScriptedSockets::Now(); }

    MessageRecorder log = MessageRecorder({"RTSP.RawSocket"});
};

TEST_F(RawSocketSteps, StartsAndStopsWinsockForEachObject) {
    {
        const RawSocket one;
        const RawSocket two;
        EXPECT_EQ(Script().startUps, 2);
    }
    EXPECT_EQ(Script().cleanUps, 2);
    EXPECT_EQ(log.All(),
              (Lines{"Initialising Winsock...", "Initialised successfully.", "Initialising Winsock...",
                     "Initialised successfully.", "Releasing Winsock.", "Releasing Winsock."}));
}

TEST_F(RawSocketSteps, AFailedStartUpIsOnlyWrittenToTheLog) {
    Script().startsUp = false;
    { const RawSocket socket; }
    std::ostringstream pointer;
    pointer << static_cast<const void*>(stderr);
    EXPECT_EQ(log.All(), (Lines{"Initialising Winsock...", "WSAStartup() failed" + pointer.str(),
                                "Initialised successfully.", "Releasing Winsock."}));
    EXPECT_EQ(Script().cleanUps, 1);
}

TEST_F(RawSocketSteps, CreatesASocketForAnAddress) {
    RawSocket socket;
    log.Drain();
    EXPECT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 10.77.0.2 port: 0",
                                "Creating Raw TCP Socket...", "Raw TCP Socket Created successfully."}));
}

TEST_F(RawSocketSteps, LooksANameUp) {
    RawSocket socket;
    log.Drain();
    EXPECT_TRUE(socket.ResolveAddress("camera", 554));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 10.77.0.2 port: 554"}));
}

TEST_F(RawSocketSteps, AHostThatIsNotFoundLeavesNoDestination) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0x1234));
    EXPECT_FALSE(socket.ResolveAddress("nobody", 554));
    EXPECT_TRUE(socket.Write("x", 1));
    const sockets::Address& to = Script().sent.at(0).to;
    EXPECT_EQ(to.family, sockets::Address().family);
    EXPECT_EQ(to.port, 0);
    EXPECT_EQ(to.ip, test::Ip{});
}

TEST_F(RawSocketSteps, TakesFamilyFromTheLookUpAndThePortAsItIs) {
    Script().familyOfNames = 23;
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0x1234));
    EXPECT_TRUE(socket.Write("x", 1));
    const sockets::Address& to = Script().sent.at(0).to;
    EXPECT_EQ(to.family, 23);
    EXPECT_EQ(to.port, 0x1234);
    EXPECT_EQ(to.ip, test::kCameraIp);
    EXPECT_EQ(to.zero, (std::array<std::uint8_t, 8>{}));
}

TEST_F(RawSocketSteps, TellsThatANameIsUnknown) {
    RawSocket socket;
    log.Drain();
    EXPECT_FALSE(socket.CreateSocket("nobody", 0));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Error resolving hostname."}));
    EXPECT_EQ(Script().opened, 0);
}

TEST_F(RawSocketSteps, TellsThatRightsAreMissing) {
    Script().opens = false;
    RawSocket socket;
    log.Drain();
    EXPECT_FALSE(socket.CreateSocket("camera", 0));
    EXPECT_EQ(
        log.All(),
        (Lines{"Resolving address...", "Host adress set to: 10.77.0.2 port: 0", "Creating Raw TCP Socket...",
               "Creation of raw socket failed. (Running with administrtative priveleges is required.)"}));
}

TEST_F(RawSocketSteps, KeepsAnOpenSocketAndResolvesAgain) {
    Script().addresses["10.77.0.3"] = {10, 77, 0, 3};
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("10.77.0.2", 0));
    log.Drain();
    EXPECT_TRUE(socket.CreateSocket("10.77.0.3", 0));
    EXPECT_EQ(log.All(), (Lines{"Resolving address...", "Host adress set to: 10.77.0.3 port: 0",
                                "Creating Raw TCP Socket...", "Socket already exists."}));
    EXPECT_EQ(Script().opened, 1);
    EXPECT_TRUE(socket.Write("x", 1));
    EXPECT_EQ(Script().sent.at(0).to.ip, (test::Ip{10, 77, 0, 3}));
}

TEST_F(RawSocketSteps, RefusesEverythingWithoutASocket) {
    RawSocket socket;
    log.Drain();
    char buffer[4];
    EXPECT_FALSE(socket.Write("x", 1));
    EXPECT_FALSE(socket.WaitForReadyRead(0));
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), 0);
    socket.ReleaseSocket();
    EXPECT_EQ(log.All(), (Lines{"Write to an invalid socket attempted",
                                "WaitForReadyRead on an invalid socket attempted",
                                "Read on an invalid socket attempted"}));
}

TEST_F(RawSocketSteps, SendsOneDatagram) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    EXPECT_TRUE(socket.Write("abc", 3));
    EXPECT_EQ(log.All(), (Lines{"Sending packet...", "Packet sent."}));
    ASSERT_EQ(Script().sent.size(), 1u);
    EXPECT_EQ(Script().sent[0].bytes, (Bytes{'a', 'b', 'c'}));
}

TEST_F(RawSocketSteps, AFailedSendIsFollowedByPacketSent) {
    Script().sendError = 10065;
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    EXPECT_FALSE(socket.Write("abc", 3));
    EXPECT_EQ(log.All(), (Lines{"Sending packet...", "Error sending Packet : 10065", "Packet sent."}));
    EXPECT_EQ(socket.SendError(), 10065);
}

TEST_F(RawSocketSteps, WaitsForItsTimeOut) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    EXPECT_FALSE(socket.WaitForReadyRead(300));
    EXPECT_EQ(log.All(), (Lines{"WaitForReadyRead Timeout"}));
    EXPECT_EQ(Script().waits_ms, (std::vector<std::uint32_t>{300}));
    Script().inbox.push_back({{1}});
    EXPECT_TRUE(socket.WaitForReadyRead(0));
    EXPECT_EQ(log.All().size(), 1u);
}

TEST_F(RawSocketSteps, AFailedWaitCountsAsReady) {
    Script().waitFails = true;
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    EXPECT_TRUE(socket.WaitForReadyRead(300));
    EXPECT_EQ(log.All(), Lines{});
}

TEST_F(RawSocketSteps, ReadsOneDatagram) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    Script().inbox = {{{1, 2, 3}}, {{4}}};
    log.Drain();
    std::uint8_t buffer[4]{};
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), 3);
    EXPECT_EQ(buffer[2], 3);
    EXPECT_EQ(buffer[3], 0);
    EXPECT_EQ(log.All(), (Lines{"Reading data...", "Bytes read: 3"}));
    EXPECT_EQ(Script().inbox.size(), 1u);
}

TEST_F(RawSocketSteps, TellsTheErrorOfARead) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    Script().inbox = {{{}, test::kCameraIp, 10054}};
    log.Drain();
    std::uint8_t buffer[4];
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), -1);
    EXPECT_EQ(log.All(), (Lines{"Reading data...", "Error reading reply : 10054"}));
}

TEST_F(RawSocketSteps, ADatagramLargerThanTheBufferIsAnError) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    Script().inbox = {{{1, 2, 3, 4, 5}}};
    log.Drain();
    std::uint8_t buffer[4];
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), -1);
    EXPECT_EQ(log.All(), (Lines{"Reading data...", "Error reading reply : 10040", "buffer too small"}));
}

TEST_F(RawSocketSteps, TheSenderReplacesTheDestination) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 77));
    Script().inbox = {{{1}, {10, 77, 0, 9}}};
    std::uint8_t buffer[4];
    EXPECT_EQ(socket.Read(buffer, sizeof buffer), 1);
    EXPECT_TRUE(socket.Write("x", 1));
    EXPECT_EQ(Script().sent.at(0).to.ip, (test::Ip{10, 77, 0, 9}));
    EXPECT_EQ(Script().sent.at(0).to.port, 0);
}

TEST_F(RawSocketSteps, ReleasesTheSocketOnce) {
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    socket.ReleaseSocket();
    socket.ReleaseSocket();
    EXPECT_EQ(log.All(), (Lines{"Releasing socket."}));
    EXPECT_EQ(Script().closed, 1);
}

TEST_F(RawSocketSteps, AFailedShutDownDoesNotStopTheRelease) {
    Script().shutsDown = false;
    RawSocket socket;
    ASSERT_TRUE(socket.CreateSocket("camera", 0));
    log.Drain();
    socket.ReleaseSocket();
    EXPECT_EQ(log.All(), (Lines{"Releasing socket.", "Error shutting down socket"}));
    EXPECT_EQ(Script().closed, 1);
}

TEST_F(RawSocketSteps, AFailedCloseKeepsTheSocket) {
    Script().closeError = 10038;
    auto socket = std::make_unique<RawSocket>();
    ASSERT_TRUE(socket->CreateSocket("camera", 0));
    log.Drain();
    socket->ReleaseSocket();
    EXPECT_EQ(log.Drain(), (Lines{"Releasing socket.", "closesocket failed with error = 10038"}));
    EXPECT_TRUE(socket->Write("x", 1));
    log.Drain();
    Script().closeError = 0;
    socket.reset();
    EXPECT_EQ(log.All(), (Lines{"Releasing socket.", "Releasing Winsock."}));
}

}  // namespace
}  // namespace camclock
