// Any text as the hex of an MPEG-4 Visual configuration.
#include <camclock/MP4VESParser.h>

#include "fuzz/FuzzInput.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    const std::string text(data, data + size);

    camclock::MP4VESParser parser;
    std::string argument = text;
    Require(parser.TryParseString(argument));
    Require(argument == text);
    unsigned int width = 100'000;
    unsigned int height = 100'000;
    bool valid = false;
    parser.GetImageSize(width, height, valid);
    Require(valid ? width < 8192 && height < 8192 : width == 100'000 && height == 100'000);

    // A copy lives on when its original has read another text.
    camclock::MP4VESParser copy(parser);
    std::string other = "000001B0F5";
    parser.TryParseString(other);
    unsigned int copiedWidth = 100'000;
    bool copiedValid = false;
    copy.GetImageSize(copiedWidth, height, copiedValid);
    Require(copiedValid == valid && copiedWidth == width);
    copy = parser;
    return 0;
}
