// An application that lets camclock.dll measure a real peer's clock by ICMP. CAMCLOCK_PEER names the peer,
// whose clock is this machine's own, so that the difference is known: none.

#include <winsock2.h>  // before log4cpp's headers, which include windows.h

#include <camclock/TimeFilter.h>
#include <camclock/Utilities.h>

#include "support/CapturingAppender.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using camclock::test::CapturingAppender;
using camclock::test::TemporaryDirectory;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(DllProbe, MeasuresThePeersClock) {
    const char* const peer = std::getenv("CAMCLOCK_PEER");
    ASSERT_NE(peer, nullptr) << "CAMCLOCK_PEER has to name a host that answers ICMP time-stamp requests";
    const TemporaryDirectory directory;
    const CapturingAppender socketLog(log4cpp::Category::getInstance("RTSP.RawSocket"));
    const CapturingAppender probeLog(log4cpp::Category::getInstance("RTSP.TimeProbe"));

    camclock::Utilities::getInstance().AnchorToSystemClock();
    {
        camclock::TimeFilter camera("Gate 3: ");
        camera.UseICMP(peer, seconds(3'600), directory.Name(), true);
        ASSERT_TRUE(camera.IsUsingProbe());
        EXPECT_FALSE(camera.DIsLocked());
        camera.CheckPollDifference(milliseconds(0));
        // A probe that gave up, on a machine too busy for a round trip of 60 ms, counts as settled too.
        const auto deadline = std::chrono::steady_clock::now() + seconds(60);
        while (!camera.DIsLocked() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(5));
        ASSERT_TRUE(camera.DIsLocked());
        ASSERT_TRUE(camera.IsUsingProbe()) << "the peer did not answer in time";

        const auto uncertainty = std::chrono::ceil<milliseconds>(camera.GetD_uncert());
        EXPECT_LT(uncertainty, milliseconds(31));
        // Both ends cut their clocks to whole milliseconds.
        EXPECT_LE(std::chrono::abs(camera.GetD()), uncertainty + milliseconds(2));
    }

    const std::vector<std::string> steps = socketLog.Direct();
    const auto wrote = [&steps](const std::string& line) {
        return std::find(steps.begin(), steps.end(), line) != steps.end();
    };
    EXPECT_TRUE(wrote("Host adress set to: " + std::string(peer) + " port: 0"));
    EXPECT_TRUE(wrote("Raw TCP Socket Created successfully."));
    EXPECT_TRUE(wrote("Bytes read: 40"));
    const std::vector<std::string> lines = probeLog.Direct();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Gate 3: Initial estimate accepted"), lines.end());

    const std::string rows = directory.Read("probelog.txt");
    EXPECT_EQ(rows.rfind("Logging probed time differences: \n time now msec, diff ms, uncert ms\n", 0), 0U)
        << rows;
    EXPECT_GE(std::count(rows.begin(), rows.end(), '\n'), 3);
}

}  // namespace
