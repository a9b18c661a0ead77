#include <camclock/TimeFilter.h>
#include <iostream>
int main() {
    std::cout << camclock::TimeFilter().GetPacketTimeOut().count() << " ms\n";
}
