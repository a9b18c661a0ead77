// What do a stream's headers tell about its pictures? H.264 and MPEG-4 Visual, from what an RTSP camera's
// session description (SDP) carries, and from the first bytes of a frame.
#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include <iostream>
#include <string>
#include <vector>

namespace {

void ReadH264() {
    // From the description's line "a=fmtp:96 ...; sprop-parameter-sets=..." (RFC 6184, 8.1).
    std::string sprops = "Z2QAH6zZQFAFuwEQAAADABAAAAMDIPGDGWA=,aOvjyyLA";

    camclock::ParameterSetParser parser;
    parser.SetSpropsString(sprops);
    if (!parser.GetSPS().valid) {
        std::cout << "H.264: no sequence parameter set\n";
        return;
    }
    unsigned int width = 0;
    unsigned int height = 0;
    parser.GetImageSize(width, height);
    std::cout << "H.264: " << width << " x " << height << ", profile " << parser.GetSPS().profile_idc
              << ", level " << parser.GetSPS().level_idc << "\n";
}

const char* Name(camclock::MediaPacket::Frametype type) {
    switch (type) {
    case camclock::MediaPacket::kFrameI: return "I";
    case camclock::MediaPacket::kFrameP: return "P";
    case camclock::MediaPacket::kFrameB: return "B";
    case camclock::MediaPacket::kFrameSprite: return "sprite";
    case camclock::MediaPacket::kFrameUnknown: break;
    }
    return "unknown";
}

void ReadMpeg4() {
    // From the description's line "a=fmtp:96 ...; config=..." (RFC 6416, 7.1).
    std::string config = "000001b001000001b58913000001000000012000c48d8800cd0584121443";

    camclock::MP4VESParser parser;
    parser.TryParseString(config);
    unsigned int width = 0;
    unsigned int height = 0;
    bool valid = false;
    parser.GetImageSize(width, height, valid);  // now: it is the configuration's only until the next parse
    if (valid)
        std::cout << "MPEG-4 Visual: " << width << " x " << height << "\n";

    // The first bytes of two frames, from their VOP start codes on: what UpdateTiming wants to know of each.
    std::vector<std::vector<unsigned char>> frames = {
        {0x00, 0x00, 0x01, 0xb6, 0x10, 0x60, 0x91, 0x82, 0x3d, 0xb7},
        {0x00, 0x00, 0x01, 0xb6, 0x50, 0xf0, 0x23, 0x85, 0x16, 0x1d}};
    for (auto& frame : frames) {
        parser.TryParse(frame.data(), static_cast<unsigned int>(frame.size()));
        const camclock::MediaPacket::Frametype type = parser.GetFrameType(valid);
        std::cout << "MPEG-4 Visual: a frame of type " << (valid ? Name(type) : "unknown") << "\n";
    }
}

}  // namespace

int main() {
    ReadH264();
    ReadMpeg4();
}
