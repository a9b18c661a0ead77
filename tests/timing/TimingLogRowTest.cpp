#include "timing/StreamFixture.h"

#include "support/LogFences.h"
#include "support/Stamp.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <future>
#include <sstream>
#include <thread>

namespace camclock::test {
namespace {

constexpr std::int32_t kMin32 = (std::numeric_limits<std::int32_t>::min)();
constexpr std::int32_t kMax32 = (std::numeric_limits<std::int32_t>::max)();

class TimingLogRow : public StreamFixture {
protected:
    TimingLogRow() { camera_.EnableTimeLogging(directory_.Name()); }

    /// The whole file behind its stamp and its two header lines, once everything
    /// posted so far has been written.
    std::string Rows() {
        EXPECT_TRUE(WaitUntilWritten(camera_.TimeLog()));
        camera_.EnableTimeLogging(directory_.Name());  // closes the first file
        const std::string text = directory_.Read("timinglog0.txt");
        EXPECT_TRUE(HasStamp(text));
        const std::size_t header = text.find('\n', text.find('\n') + 1) + 1;
        return text.substr(header);
    }

    TemporaryDirectory directory_;
};

TEST_F(TimingLogRow, HasTwentyFieldsInTheOrderOfTheHeader) {
    stream_->DoTimeFiltering(true);
    stream_->DoEstimation(true);
    stream_->SetMeanLatency(milliseconds(45));
    stream_->SetStreamId("stream 7");
    const auto report = Report(4'000'000'001, 3'908'988'801, 1'073'741'824);
    report->SyncSSRC = 4'294'967'294;
    stream_->UpdateSyncInfo(report);
    auto packet = Packet(4'000'090'001, kStart + milliseconds(2'290) + Ticks(9'999));
    packet->RTPSeqnum = 65'535;
    packet->SSRC = 4'294'967'295;
    packet->LiveTOR_tv_sec = 1'700'000'002;
    packet->LiveTOR_tv_usec = 123'456;
    packet->LivePts_tv_sec = 77;
    packet->LivePts_tv_usec = 654'321;
    stream_->UpdateTiming(packet, MediaPacket::kFrameP);
    stream_->DoEstimation(false);
    camera_.SetD(milliseconds(-1'234));
    packet = std::make_shared<TimingData>(*packet);
    packet->RTP_ts = 4'000'180'001;
    packet->TOR_host = kStart + milliseconds(3'333);
    stream_->UpdateTiming(packet, MediaPacket::kFrameSprite);
    // Captured at kStart + 1 s (report) + 249,999 us (fraction, by the rounded
    // factor) + 1 s; latency 41,000 us.
    EXPECT_EQ(
        Rows(),
        "stream 7, 4294967295, 4000090001, 90000, 65535, 1700000002, 123456, 77, 654321, 1700000002290, "
        "3, 4000000001, 3908988801, 1073741824, 4294967294, 1700000002249, -4, 0, -4, 45, \n"
        "stream 7, 4294967295, 4000180001, 90000, 65535, 1700000002, 123456, 77, 654321, 1700000003333, "
        "4, 4000000001, 3908988801, 1073741824, 4294967294, 1700000003249, -1234, 0, -4, 45, \n");
}

TEST_F(TimingLogRow, PrintsNegativeAndExtremeValues) {
    stream_->SetMeanLatency((milliseconds::min)());
    camera_.SetD((milliseconds::min)());
    stream_->UpdateSyncInfo(Report(0, 0, 0));
    auto packet = Packet(0, TimePoint(Ticks(-15'000)), 0xFFFF'FFFF);
    packet->LiveTOR_tv_sec = kMin32;
    packet->LiveTOR_tv_usec = -1;
    packet->LivePts_tv_sec = kMax32;
    packet->LivePts_tv_usec = kMin32;
    stream_->UpdateTiming(packet, static_cast<MediaPacket::Frametype>(-2));
    // Milliseconds since 1970 are truncated toward zero.
    EXPECT_EQ(Rows(),
              "S7 , 0, 0, 4294967295, 0, -2147483648, -1, 2147483647, -2147483648, -1, -2, 0, 0, 0, 0, "
              "-2208988800000, -9223372036854775808, 0, 0, -9223372036854775808, \n");
}

TEST_F(TimingLogRow, NoneIsWrittenBeforeTheFirstReport) {
    Feed(0, kStart);
    Feed(3'600, kStart + milliseconds(40));
    stream_->UpdateSyncInfo(Report(0));
    EXPECT_EQ(Rows(), "");
}

TEST_F(TimingLogRow, OneIsWrittenForEveryPacketWithTheValuesOfItsTime) {
    stream_->UpdateSyncInfo(Report(0));
    Feed(3'600, kStart + milliseconds(50));
    camera_.SetD(milliseconds(7));
    stream_->SetStreamId("new");
    stream_->UpdateSyncInfo(Report(450'000, kNtpStart + 5));
    stream_->UpdateTiming(Packet(7'200, kStart + milliseconds(90)), MediaPacket::kFrameI);
    camera_.SetD(milliseconds(8));
    EXPECT_EQ(
        Rows(),
        "S7 , 0, 3600, 90000, 0, 0, 0, 0, 0, 1700000000050, 3, 0, 3908988800, 0, 0, 1700000000040, "
        "0, 0, 0, 30, \n"
        "new, 0, 7200, 90000, 0, 0, 0, 0, 0, 1700000000090, 1, 450000, 3908988805, 0, 0, 1700000000080, "
        "7, 0, 0, 30, \n");
}

TEST_F(TimingLogRow, SharesThePacketsRecordUntilItIsWritten) {
    std::promise<void> goOn;
    camera_.TimeLog().Post([held = goOn.get_future().share()](std::stringstream& out) {
        out.str(std::string());
        held.wait_for(kDeadline);
    });
    stream_->UpdateSyncInfo(Report(0));
    Feed(0, kStart);  // which has the trace
    const auto packet = Packet(3'600, kStart + milliseconds(40));
    stream_->UpdateTiming(packet, MediaPacket::kFrameP);
    EXPECT_EQ(packet.use_count(), 3) << "the test, the stream and the row";
    Feed(7'200, kStart + milliseconds(80));
    EXPECT_EQ(packet.use_count(), 2) << "the test and the row";
    goOn.set_value();
    ASSERT_TRUE(WaitUntilWritten(camera_.TimeLog()));
    EXPECT_EQ(packet.use_count(), 1);
}

TEST_F(TimingLogRow, StreamsOfOneCameraShareTheFile) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([this, t] {
            const auto stream = camera_.CreateNewTimeFilter();
            stream->SetStreamId("stream " + std::to_string(t));
            stream->UpdateSyncInfo(Report(0));
            for (std::uint32_t i = 0; i < 300; ++i)
                stream->UpdateTiming(Packet(3'600 * i, kStart + milliseconds(40 * i)), MediaPacket::kFrameP);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::stringstream rows(Rows());
    std::size_t counts[2] = {0, 0};
    for (std::string row; std::getline(rows, row);) {
        ASSERT_EQ(std::count(row.begin(), row.end(), ','), 20) << row;
        const std::size_t t = row.compare(0, 9, "stream 0,") == 0 ? 0 : 1;
        // Rows of one stream stand in the order of its packets.
        const std::string start =
            "stream " + std::to_string(t) + ", 0, " + std::to_string(3'600 * counts[t]) + ", ";
        ASSERT_EQ(row.substr(0, start.size()), start);
        ++counts[t];
    }
    EXPECT_EQ(counts[0], 300U);
    EXPECT_EQ(counts[1], 300U);
}

}  // namespace
}  // namespace camclock::test
