#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/Utilities.h>
#include <iostream>
using namespace camclock;
int main() {
    Utilities::getInstance().AnchorToSystemClock();     // once, before everything else
    TimeFilter camera("Gate 3: ");                      // one per camera
    const auto stream = camera.CreateNewTimeFilter();   // one per stream
    stream->DoTimeFiltering(true);                      // map the camera's clock to the host's ...
    stream->DoEstimation(true);                         // ... by the difference that the packets show
    const auto report = std::make_shared<SyncPoint>();  // every RTCP sender report, as it arrives:
    report->SyncRTP = 90'000;                           // this RTP time stamp belongs to ...
    report->SyncNTPmsw = 3'900'000'000;                 // ... this NTP time of the camera's (wrong) clock
    stream->UpdateSyncInfo(report);
    const TimePoint start = Utilities::getInstance().GetTime();
    for (std::uint32_t n = 0; n < 50; ++n) {  // every frame, one call; here 40 ms apart
        const auto frame = std::make_shared<TimingData>();
        frame->RTP_ts = 90'000 + n * 3'600;
        frame->RTPFreq = 90'000;  // live: TOR_host is GetTime() when the frame's first packet arrives
        frame->TOR_host = start + std::chrono::milliseconds(n * 40 + 30);
        stream->UpdateTiming(frame, MediaPacket::kFrameP);
    }  // The last frame was captured 49 * 40 ms after the start. D is in whole milliseconds: 1959 or 1960.
    std::cout << (stream->GetCurrentTOC_Host() - start) / std::chrono::milliseconds(1) << " ms\n";
}
