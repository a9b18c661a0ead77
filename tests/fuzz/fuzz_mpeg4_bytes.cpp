// Any bytes as MPEG-4 Visual headers. The first byte says where the rest is cut in two: a configuration, then
// a frame that is read with its settings.
#include <camclock/MP4VESParser.h>

#include "fuzz/FuzzInput.h"

#include <algorithm>

namespace {

using camclock::MP4VESParser;
using camclock::fuzz::Require;

void Check(MP4VESParser& parser) {
    unsigned int width = 100'000;
    unsigned int height = 100'000;
    bool sizeValid = false;
    parser.GetImageSize(width, height, sizeValid);
    // 13 bits each, or untouched. A layer without size, which has another shape, keeps the earlier layer's:
    // all ones where that one was cut short.
    const auto isSize = [](unsigned int value) { return value < 8192 || value == 0xFFFF'FFFF; };
    Require(sizeValid ? isSize(width) && isSize(height) : width == 100'000 && height == 100'000);
    bool formatValid = false;
    Require(parser.GetPixelFormat(formatValid) == camclock::MediaPacket::kPixel420 &&
            formatValid == sizeValid);
    bool typeValid = false;
    const auto type = parser.GetFrameType(typeValid);
    Require(typeValid == (type != camclock::MediaPacket::kFrameUnknown));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t cut = (std::min)(std::size_t{data[0]}, size - 1);
    auto config = camclock::fuzz::Exact(data + 1, cut);
    auto frame = camclock::fuzz::Exact(data + 1 + cut, size - 1 - cut);

    MP4VESParser parser;
    Require(parser.TryParse(config.data(), static_cast<unsigned int>(config.size())));
    Check(parser);
    MP4VESParser copy(parser);
    Require(copy.TryParse(frame.data(), static_cast<unsigned int>(frame.size())));
    Check(copy);
    parser = copy;
    Check(parser);
    return 0;
}
