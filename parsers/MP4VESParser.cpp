#include <camclock/MP4VESParser.h>

#include "parsers/HexText.h"
#include "parsers/StartCodes.h"

namespace camclock {

MP4VESParser::MP4VESParser() = default;

MP4VESParser::MP4VESParser(const MP4VESParser& other)
    : BinaryStreamParser(other)
    , layer_(other.layer_)
    , plane_(other.plane_)
    , sequence_(other.sequence_)
    , object_(other.object_)
    , hexBytes_(other.hexBytes_) {
    _RebaseBuffer(other);
}

MP4VESParser& MP4VESParser::operator=(const MP4VESParser& other) {
    BinaryStreamParser::operator=(other);
    layer_ = other.layer_;
    plane_ = other.plane_;
    sequence_ = other.sequence_;
    object_ = other.object_;
    hexBytes_ = other.hexBytes_;
    _RebaseBuffer(other);
    return *this;
}

MP4VESParser::~MP4VESParser() = default;

// A copy whose original read its own decoded bytes goes on in the copied bytes: the two live independently.
void MP4VESParser::_RebaseBuffer(const MP4VESParser& other) {
    if (buffer_ != nullptr && buffer_ == other.hexBytes_.data()) {
        buffer_ = hexBytes_.data();
    }
}

bool MP4VESParser::TryParse(unsigned char* data, unsigned int size) {
    InitParser(data, size);
    sequence_.valid = false;
    object_.valid = false;
    layer_.valid = false;
    plane_.valid = false;
    switch (_NextBits(32)) {
    case kSequenceStartCode: _VisualObjectSequence(); break;
    case kObjectStartCode: _VisualObject(); break;
    case kVopStartCode: _VideoObjectPlane(); break;
    default: break;
    }
    return true;
}

bool MP4VESParser::TryParseString(std::string& hex) {
    DecodeHexText(hex, hexBytes_);
    return TryParse(hexBytes_.data(), static_cast<unsigned int>(hexBytes_.size()));
}

MediaPacket::Frametype MP4VESParser::GetFrameType(bool& valid) const {
    valid = plane_.present && plane_.valid;
    if (!valid) {
        return MediaPacket::kFrameUnknown;
    }
    switch (plane_.vop_coding_type) {
    case 0: return MediaPacket::kFrameI;
    case 1: return MediaPacket::kFrameP;
    case 2: return MediaPacket::kFrameB;
    case 3: return MediaPacket::kFrameSprite;
    default: return MediaPacket::kFrameUnknown;
    }
}

void MP4VESParser::GetImageSize(unsigned int& width, unsigned int& height, bool& valid) const {
    valid = layer_.present && layer_.valid;
    if (valid) {
        width = layer_.video_object_layer_width;
        height = layer_.video_object_layer_height;
    }
}

MediaPacket::PixelFormat MP4VESParser::GetPixelFormat(bool& valid) const {
    valid = layer_.present && layer_.valid;
    return MediaPacket::kPixel420;
}

// next_start_code() (ISO/IEC 14496-2, 5.2.5): one zero bit, then ones up to the byte boundary; not checked.
void MP4VESParser::_NextStartCode() {
    _ReadBit();
    while (!_ByteAligned()) {
        _ReadBit();
    }
}

// user_data() (6.2.2.1).
void MP4VESParser::_UserData() {
    _ReadBits(32);
    _SkipToStartCodePrefix();
}

// Whole bytes, up to the next start code or until the data runs out.
void MP4VESParser::_SkipToStartCodePrefix() {
    while (!_NextBitsAre(24, kStartCodePrefix) && !endOfData_) {
        _ReadBits(8);
    }
}

// The count of significant bits of v: 0 for 0, 5 for 16, 15 for 30,000.
int MP4VESParser::_necessaryBits(unsigned int v) {
    int bits = 0;
    for (; v != 0; v >>= 1U) {
        ++bits;
    }
    return bits;
}

}  // namespace camclock
