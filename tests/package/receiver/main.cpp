#include <camclock/receiver/Format.h>
#include <iostream>
int main() {
    for (const auto& format : camclock::receiver::Format::FromSdp("m=video 0 RTP/AVP 26\n"))
        std::cout << format.encoding << " " << format.clockRate_Hz << " Hz\n";
}
