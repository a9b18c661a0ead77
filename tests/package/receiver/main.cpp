#include <camclock/Receiver.h>
#include <iostream>
int main() {
    using namespace camclock::receiver;
    Camera camera("gate 3");
    const auto print = [](const Frame& frame) {
        std::cout << frame.packets << " packet, " << frame.bytes << " bytes\n";
    };
    const auto stream = camera.AddStream("video", Format::FromSdp("m=video 0 RTP/AVP 26\n").at(0), print);
    const unsigned char packet[] = {0x80, 0x9A, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 1, 80, 40, 30};
    stream->FeedRtp(packet, sizeof packet, Now());
    camera.Poll();
}
