#include <camclock/TimeFilter.h>
#ifdef WITH_RECEIVER
#include <camclock/receiver/Format.h>
#endif

int main() {
    const bool camera = camclock::TimeFilter().GetPacketTimeOut().count() == 10'000;
#ifdef WITH_RECEIVER
    return camera && camclock::receiver::Format::FromSdp("m=video 0 RTP/AVP 26\n").size() == 1 ? 0 : 1;
#else
    return camera ? 0 : 1;
#endif
}
