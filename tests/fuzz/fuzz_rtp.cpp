// Any bytes as an RTP packet.
#include "fuzz/FuzzInput.h"
#include "receiver/RtpReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    const auto bytes = camclock::fuzz::Exact(data, size);
    const auto packet = camclock::receiver::ReadRtp(bytes.data(), bytes.size());
    if (!packet)
        return 0;
    constexpr std::size_t kFixedHeader = 12;
    Require(bytes.size() >= kFixedHeader && bytes[0] >> 6U == 2 && packet->payloadType < 128);
    // The payload lies behind the header and reaches to the end, but for the padding.
    const auto start = static_cast<std::size_t>(packet->payload - bytes.data());
    Require(start >= kFixedHeader && start % 4 == 0 && start + packet->size <= bytes.size());
    const bool hasPadding = (bytes[0] & 0x20U) != 0;
    Require(bytes.size() - start - packet->size == (hasPadding ? bytes.back() : 0U));
    return 0;
}
