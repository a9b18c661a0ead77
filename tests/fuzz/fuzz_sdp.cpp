// Any text as a session description, and what it carries as headers.
#include "fuzz/FuzzInput.h"
#include "receiver/PictureHeaders.h"

#include <camclock/receiver/Format.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    using camclock::receiver::Codec;
    const auto formats = camclock::receiver::Format::FromSdp(std::string(data, data + size));
    Require(formats.size() <= 256);
    for (const camclock::receiver::Format& format : formats) {
        Require(format.payloadType >= 0 && format.payloadType < 128 && format.clockRate_Hz != 0);
        Require(format.headers.size() + format.control.size() + format.encoding.size() <= size + 4);
        Require(format.headers.empty() || (format.codec != Codec::kOther && format.codec != Codec::kMjpeg));
        const camclock::receiver::PictureHeaders headers(format.codec, format.headers);
        const auto picture = headers.Picture();
        Require(!picture || (picture->width > 0 && picture->height > 0));
    }
    return 0;
}
