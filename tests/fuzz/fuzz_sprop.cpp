// Any text as the sprop-parameter-sets of an SDP.
#include <camclock/ParameterSetParser.h>

#include "fuzz/FuzzInput.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    const std::string text(data, data + size);

    camclock::ParameterSetParser parser;
    std::string argument = text;
    parser.SetSpropsString(argument);
    // Nothing but the separators behind the two entries is overwritten.
    Require(argument.size() == text.size());
    int overwritten = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (argument[i] != text[i]) {
            Require(text[i] == ',' && argument[i] == '\0');
            ++overwritten;
        }
    }
    Require(overwritten <= 2);

    unsigned int width = 1;
    unsigned int height = 3;
    parser.GetImageSize(width, height);
    Require((width % 2 == 0) == parser.GetSPS().valid && (height % 2 == 0) == parser.GetSPS().valid);
    Require(parser.GetSPS().valid || parser.GetPixelFormat() == camclock::MediaPacket::kPixelUnknown);

    // Copies own what they hold; a second text replaces it.
    camclock::ParameterSetParser copy;
    copy = parser;
    parser.SetSpropsString(argument);
    argument = text;
    copy.SetSpropsString(argument);
    return 0;
}
