#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace camclock::receiver {

/// The bytes of each entry of a list of base64 texts (RFC 4648, 4) that commas separate. An entry ends with
/// its padding or with the first character that is no digit; bits that fill no byte are dropped.
std::vector<std::vector<std::uint8_t>> DecodeBase64List(std::string_view text);

}  // namespace camclock::receiver
