#pragma once

#include "receiver/PictureHeaders.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace camclock::receiver {

/// Size and pixel format of the pictures of a sequence parameter set (ITU-T H.265, 7.3.2.2), its NAL unit
/// header included; the size is that of the conformance window. Nothing when it is none, or is cut short in
/// front of them. Any bytes may be given.
std::optional<PictureFormat> PictureOfH265Sps(const std::uint8_t* nal, std::size_t size);

}  // namespace camclock::receiver
