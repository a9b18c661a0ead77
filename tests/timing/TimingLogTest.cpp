#include "timing/StreamFixture.h"

#include "support/LogFences.h"
#include "support/Stamp.h"
#include "support/TemporaryDirectory.h"
#include "timing/TimingLogColumns.h"
#include "util/PathSeparator.h"

#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

namespace camclock::test {
namespace {

constexpr const char* kHeader =
    "Logging time filter states.: \n"
    "StreamID: SSRC,RTP,RTPFreq,RTPSeqnum,LiveTOR_tv_sec,LiveTOR_tv_usec,LivePts_tv_sec,LivePts_tv_usec,TOR_host,"
    "FrameT,SyncRTP,SyncNTPmsw,SyncNTPlsw,SyncSSRC,TOC_cam,D,D_uncert,D_hat,L\n";

#if defined(__linux__)
/// Threads of this process.
std::ptrdiff_t Threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}
#endif

class TimingLog : public StreamFixture {
protected:
    void WaitForWrites() { ASSERT_TRUE(WaitUntilWritten(camera_.TimeLog())); }

    TemporaryDirectory directory_;
};

TEST_F(TimingLog, IsOffAtFirst) {
    EXPECT_FALSE(camera_.IsTimeLogging());
}

TEST_F(TimingLog, BeginsWithAStampedHeader) {
    camera_.EnableTimeLogging(directory_.Name());
    EXPECT_TRUE(camera_.IsTimeLogging());
    EXPECT_EQ(cameraLog_.Direct().back(), "Gate 3: Starting a time log at: " + directory_.Name());
    WaitForWrites();
    camera_.EnableTimeLogging(directory_.Name());  // closes the first
    const std::string text = directory_.Read("timinglog0.txt");
    EXPECT_TRUE(HasStamp(text)) << text;
    EXPECT_EQ(WithoutStamp(text), kHeader);
    EXPECT_STREQ(kTimingLogHeader, kHeader);
}

TEST_F(TimingLog, TakesTheFirstFreeNumber) {
    camera_.EnableTimeLogging(directory_.Name());
    EXPECT_TRUE(directory_.Has("timinglog0.txt"));
    camera_.EnableTimeLogging(directory_.Name());
    EXPECT_TRUE(directory_.Has("timinglog1.txt"));
    {
        TimeFilter laterSession;
        laterSession.EnableTimeLogging(directory_.Name());
        EXPECT_TRUE(directory_.Has("timinglog2.txt"));
    }
    std::filesystem::copy_file(directory_.Path() / "timinglog2.txt", directory_.Path() / "timinglog4.txt");
    camera_.EnableTimeLogging(directory_.Name());
    camera_.EnableTimeLogging(directory_.Name());
    EXPECT_TRUE(directory_.Has("timinglog3.txt"));
    EXPECT_TRUE(directory_.Has("timinglog5.txt"));
    EXPECT_FALSE(directory_.Has("timinglog6.txt"));
}

TEST_F(TimingLog, LeavesExistingFilesAlone) {
    std::ofstream((directory_.Path() / "timinglog0.txt").string()) << "precious";
    camera_.EnableTimeLogging(directory_.Name());
    EXPECT_EQ(directory_.Read("timinglog0.txt"), "precious");
    EXPECT_TRUE(directory_.Has("timinglog1.txt"));
}

TEST_F(TimingLog, WithoutADirectoryGoesToTheWorkingDirectory) {
    const std::filesystem::path old = std::filesystem::current_path();
    std::filesystem::current_path(directory_.Path());
    camera_.EnableTimeLogging("");
    std::filesystem::current_path(old);
    EXPECT_TRUE(directory_.Has("timinglog0.txt"));
    EXPECT_EQ(cameraLog_.Direct().back(), "Gate 3: Starting a time log at: ");
}

TEST_F(TimingLog, ASeparatorAtTheEndIsDoubled) {
    const std::string name = directory_.Name() + kPathSeparator;
    camera_.EnableTimeLogging(name);
    EXPECT_TRUE(directory_.Has("timinglog0.txt"));
    EXPECT_EQ(cameraLog_.Direct().back(), "Gate 3: Starting a time log at: " + name);
}

TEST_F(TimingLog, ADirectoryThatIsMissingIsNotReported) {
    camera_.EnableTimeLogging((directory_.Path() / "missing").string());
    EXPECT_TRUE(camera_.IsTimeLogging());
    stream_->UpdateSyncInfo(Report(0));
    Feed(0, kStart);
    WaitForWrites();
    EXPECT_FALSE(directory_.Has("missing"));
}

TEST_F(TimingLog, ANewLogDropsWhatTheOldOneHasQueued) {
    camera_.EnableTimeLogging(directory_.Name());
    WaitForWrites();
    std::promise<void> started;
    std::promise<void> resume;
    camera_.TimeLog().Post([&](std::stringstream& out) {
        out.str("in hand\n");
        started.set_value();
        resume.get_future().wait_for(kDeadline);
    });
    ASSERT_EQ(started.get_future().wait_for(kDeadline), std::future_status::ready);
    const auto token = std::make_shared<int>(0);
    camera_.TimeLog().Post([token](std::stringstream& out) { out.str("queued\n"); });
    AsynchronousLog& old = camera_.TimeLog();
#if defined(__linux__)
    const std::ptrdiff_t threads = Threads();
#endif
    std::thread replacer([this] { camera_.EnableTimeLogging(directory_.Name()); });
    WaitForDestruction(old);
#if defined(__linux__)
    EXPECT_EQ(Threads(), threads + 1) << "a new log has a thread before the old one has ended";
#endif
    resume.set_value();
    replacer.join();
    EXPECT_EQ(token.use_count(), 1);
    const std::string text = directory_.Read("timinglog0.txt");
    EXPECT_EQ(WithoutStamp(text), std::string(kHeader) + "in hand\n");
    WaitForWrites();
    EXPECT_TRUE(directory_.Has("timinglog1.txt"));
}

}  // namespace
}  // namespace camclock::test
