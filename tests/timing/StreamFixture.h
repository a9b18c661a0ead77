#pragma once

#include "logging/Categories.h"
#include "support/CapturingAppender.h"
#include "support/ManualCounter.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace camclock::test {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Lines = std::vector<std::string>;

inline constexpr std::int64_t kMin64 = (std::numeric_limits<std::int64_t>::min)();
inline constexpr std::int64_t kMax64 = (std::numeric_limits<std::int64_t>::max)();

/// Where the host's clock starts in these tests: 2023-11-14 22:13:20.000.
inline constexpr TimePoint kStart(Ticks(17'000'000'000'000'000));

/// The same instant in whole NTP seconds, for a camera whose clock is right.
inline constexpr std::uint32_t kNtpStart = 3'908'988'800;

/// One millisecond (1,000 us) as the fraction of an NTP time stamp.
inline constexpr std::uint32_t kNtpMillisecond = 4'294'968;

inline std::shared_ptr<TimingData> Packet(std::uint32_t RTP_ts, TimePoint TOR_host,
                                          std::uint32_t RTPFreq = 90'000) {
    auto packet = std::make_shared<TimingData>();
    packet->RTP_ts = RTP_ts;
    packet->RTPFreq = RTPFreq;
    packet->TOR_host = TOR_host;
    return packet;
}

inline std::shared_ptr<SyncPoint> Report(std::uint32_t SyncRTP, std::uint32_t SyncNTPmsw = kNtpStart,
                                         std::uint32_t SyncNTPlsw = 0) {
    auto report = std::make_shared<SyncPoint>();
    report->SyncRTP = SyncRTP;
    report->SyncNTPmsw = SyncNTPmsw;
    report->SyncNTPlsw = SyncNTPlsw;
    return report;
}

inline bool IsTrace(const std::string& message) {
    return message.find("\n\tPacket #") != std::string::npos &&
           message.find("\tRTP_ts: ") != std::string::npos;
}

/// One camera "Gate 3: " with one stream "S7 ", both logs captured, the host's clock standing at `kStart`.
class StreamFixture : public ::testing::Test {
protected:
    StreamFixture() { stream_->SetStreamId("S7 "); }

    void Feed(std::uint32_t RTP_ts, TimePoint TOR_host, std::uint32_t RTPFreq = 90'000) {
        stream_->UpdateTiming(Packet(RTP_ts, TOR_host, RTPFreq), MediaPacket::kFrameP);
    }

    /// The stream's direct messages, without the first, which tells of its making.
    Lines StreamDirect() const {
        Lines messages = streamLog_.Direct();
        messages.erase(messages.begin());
        return messages;
    }

    /// All deferred messages of the stream up to now, whole: the last packet is traced under another stream
    /// id, and what stands before that trace is everything. There has been a packet.
    Lines StreamDeferred() {
        const std::string id = stream_->GetStreamId();
        const std::string fence = "fence " + std::to_string(++fences_);
        stream_->SetStreamId(fence);
        stream_->TraceCurrentPacket();
        stream_->SetStreamId(id);
        Lines messages;
        const bool found = streamLog_.WaitUntilDeferred([&](const Lines& deferred) {
            messages.clear();
            for (const std::string& message : deferred) {
                if (message.compare(0, fence.size() + 1, fence + "\n") == 0)
                    return true;
                if (message.compare(0, 6, "fence ") != 0)
                    messages.push_back(message);
            }
            return false;
        });
        EXPECT_TRUE(found) << "no trace within the deadline";
        return messages;
    }

    /// The same without the packet traces.
    Lines StreamDeferredButTraces() {
        Lines messages;
        for (std::string& message : StreamDeferred()) {
            if (!IsTrace(message))
                messages.push_back(std::move(message));
        }
        return messages;
    }

    ManualCounter counter_{kStart};
    CapturingAppender cameraLog_{categories::TimeFilter()};
    CapturingAppender streamLog_{categories::TimeFilterInstance()};
    TimeFilter camera_{"Gate 3: "};
    std::shared_ptr<TimeFilterInstance> stream_ = camera_.CreateNewTimeFilter();

private:
    int fences_ = 0;
};

/// The same with both categories above INFO: nothing is written.
class SilentStreamFixture : public ::testing::Test {
protected:
    ManualCounter counter_{kStart};
    CapturingAppender cameraLog_{categories::TimeFilter(), log4cpp::Priority::NOTICE};
    CapturingAppender streamLog_{categories::TimeFilterInstance(), log4cpp::Priority::NOTICE};
    TimeFilter camera_{"Gate 3: "};
    std::shared_ptr<TimeFilterInstance> stream_ = camera_.CreateNewTimeFilter();
};

}  // namespace camclock::test
