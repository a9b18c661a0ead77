// Any bytes as an RTCP datagram.
#include "fuzz/FuzzInput.h"
#include "receiver/RtcpReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    const auto bytes = camclock::fuzz::Exact(data, size);
    static camclock::receiver::RtcpContents contents;  // in use, as a stream's
    const bool isRtcp = camclock::receiver::ReadRtcp(bytes.data(), bytes.size(), contents);
    Require(isRtcp || (contents.reports.empty() && contents.byes.empty()));
    Require(!isRtcp || (bytes.size() >= 4 && bytes[1] >= 192 && bytes[1] <= 223));
    constexpr std::size_t kSenderReport = 28;
    Require(kSenderReport * contents.reports.size() + 4 * contents.byes.size() <= bytes.size());
    return 0;
}
