#include <camclock/Receiver.h>
#include <iostream>
using namespace camclock::receiver;
int main() {
    Camera camera("gate 3");                                           // one per camera
    const auto formats = Format::FromSdp("m=video 0 RTP/AVP 26\r\n");  // how the camera describes its streams
    Frame last;  // the sink gets every frame with its time of capture, on the host's clock
    const auto stream = camera.AddStream("video", formats.at(0), [&](const Frame& frame) { last = frame; });
    // Live, each datagram goes in as it arrives: stream->FeedRtcp(data, size, Now()), stream->FeedRtp(...).
    // Here others have read them: a report, by a camera's clock that is wrong ...
    const auto start = Now();
    stream->FeedReport(/*ssrc*/ 7, /*ntp*/ 3'900'000'000ULL << 32U, /*rtp_ts*/ 90'000, start);
    for (std::uint32_t n = 0; n < 50; ++n) {  // ... and frames 40 ms apart, each 30 ms under way
        Frame frame;
        frame.ssrc = 7;
        frame.rtp_ts = 90'000 + n * 3'600;
        frame.arrived_host = start + std::chrono::milliseconds(n * 40 + 30);
        stream->FeedFrame(frame);
    }
    camera.Poll();  // some times a second: notices what does not come
    if (last.trust == Trust::kGood)
        std::cout << (last.captured_host - start) / std::chrono::milliseconds(1) << " ms, to trust\n";
}
