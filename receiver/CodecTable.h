#pragma once

#include <camclock/receiver/Format.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace camclock::receiver {

/// What is known of an encoding name (a=rtpmap).
struct Encoding {
    std::string_view name;       ///< as registered; written in any case
    std::string_view forPeople;  ///< "H.264"
    std::uint32_t clockRate_Hz;  ///< where the description gives none
    Codec codec = Codec::kOther;
    std::array<std::string_view, 3> headerParameters{};  ///< of a=fmtp, in the order in which they are joined
};

/// Null for a name that is not in the table. Case does not count (RFC 4855, 3).
const Encoding* EncodingOf(std::string_view name);

/// The encoding of a static payload type (RFC 3551, tables 4 and 5); null for one that is not assigned.
const Encoding* EncodingOfPayloadType(int payloadType);

/// The clock rate of a static payload type, where DVI4 and L16 differ from one to another; 0 when not
/// assigned.
std::uint32_t ClockRateOfPayloadType(int payloadType);

/// "H.264" for "h264"; a name that is not in the table is given back.
std::string_view NameForPeople(std::string_view encodingName);

}  // namespace camclock::receiver
