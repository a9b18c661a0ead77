#include "receiver/PictureHeaders.h"

#include "receiver/FrameType.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace camclock::receiver {
namespace {

constexpr unsigned int kSequenceCode = 0xB0;  // last byte of the start codes of ISO/IEC 14496-2, table 6-3
constexpr unsigned int kObjectCode = 0xB5;
constexpr unsigned int kVopCode = 0xB6;

/// The first start code 00 00 01 XX whose last byte is one of `codes`; `size` when there is none.
template <std::size_t N>
std::size_t FindStartCode(const std::uint8_t* data, std::size_t size,
                          const std::array<unsigned int, N>& codes) {
    for (std::size_t i = 0; i + 4 <= size; ++i)
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 &&
            std::find(codes.begin(), codes.end(), data[i + 3]) != codes.end())
            return i;
    return size;
}

/// More of a packet is never needed: headers are some dozens of bytes, and the parser reads no further.
constexpr std::size_t kLongestHeader = 2048;

}  // namespace

const char* PixelFormatText(MediaPacket::PixelFormat format) {
    switch (format) {
    case MediaPacket::kPixelMonochrome: return "monochrome";
    case MediaPacket::kPixel420: return "4:2:0";
    case MediaPacket::kPixel422: return "4:2:2";
    case MediaPacket::kPixel444: return "4:4:4";
    case MediaPacket::kPixelUnknown: break;
    }
    return "unknown";
}

std::string PictureText(const PictureFormat& picture) {
    std::string text = std::to_string(picture.width) + "x" + std::to_string(picture.height);
    if (picture.pixels != MediaPacket::kPixelUnknown)
        text += std::string(" ") + PixelFormatText(picture.pixels);
    return text;
}

std::optional<PictureFormat> SizeOfText(const std::string& text) {
    std::istringstream in(text);
    PictureFormat size;
    char between = 0;
    constexpr unsigned int kLargest = 65'536;
    if (!(in >> size.width >> between >> size.height) || (between != '-' && between != ','))
        return std::nullopt;
    if (size.width == 0 || size.height == 0 || size.width > kLargest || size.height > kLargest)
        return std::nullopt;
    return size;
}

PictureHeaders::PictureHeaders(Codec codec, const std::string& description)
    : codec_(codec) {
    std::string text = description;
    if (codec_ == Codec::kH264) {
        h264_.SetSpropsString(text);
        _TakeSps();
    } else {
        mpeg4_.TryParseString(text);
        _TakeLayer();
    }
}

void PictureHeaders::TakeFallback(unsigned int width, unsigned int height) {
    const bool isMpeg4 = codec_ == Codec::kMpeg4Visual;
    fallback_ = PictureFormat{width, height, isMpeg4 ? MediaPacket::kPixel420 : MediaPacket::kPixelUnknown};
}

void PictureHeaders::Take(const std::uint8_t* payload, std::size_t size) {
    if (fromHeaders_ || size == 0)
        return;
    if (codec_ == Codec::kMpeg4Visual) {
        const std::size_t start =
            FindStartCode(payload, std::min(size, kLongestHeader), std::array{kSequenceCode, kObjectCode});
        if (start >= std::min(size, kLongestHeader))
            return;
        bytes_.assign(payload + start, payload + std::min(size, start + kLongestHeader));
        mpeg4_.TryParse(bytes_.data(), static_cast<unsigned int>(bytes_.size()));
        _TakeLayer();
        return;
    }
    switch (payload[0] & 0x1FU) {  // RFC 6184, table 1
    case 7: _TakeParameterSet(payload, size); break;
    case 24: _TakeAggregate(payload + 1, size - 1); break;  // STAP-A
    case 25:
        _TakeAggregate(payload + std::min<std::size_t>(size, 3), size - std::min<std::size_t>(size, 3));
        break;
    default: break;
    }
}

void PictureHeaders::_TakeParameterSet(const std::uint8_t* nal, std::size_t size) {
    constexpr unsigned int kSps = 7;
    if (size == 0 || (nal[0] & 0x1FU) != kSps)
        return;
    bytes_.assign(nal, nal + std::min(size, kLongestHeader));
    h264_.SetSPSArray(bytes_.data(), static_cast<unsigned int>(bytes_.size()));
    _TakeSps();
}

void PictureHeaders::_TakeAggregate(const std::uint8_t* units, std::size_t size) {
    while (size > 2) {
        const std::size_t length = static_cast<std::size_t>(units[0]) << 8U | units[1];
        units += 2;
        size -= 2;
        if (length > size)
            return;
        _TakeParameterSet(units, length);
        units += length;
        size -= length;
    }
}

void PictureHeaders::_TakeSps() {
    PictureFormat picture;
    h264_.GetImageSize(picture.width, picture.height);
    if (!h264_.GetSPS().valid || picture.width == 0 || picture.height == 0)
        return;
    picture.pixels = h264_.GetPixelFormat();
    // Where the stream does not carry chroma_format_idc the library says monochrome; Baseline, Main and
    // Extended pictures are 4:2:0 (ITU-T H.264, A.2.1 to A.2.3).
    const std::uint32_t profile = h264_.GetSPS().profile_idc;
    if (profile == 66 || profile == 77 || profile == 88)
        picture.pixels = MediaPacket::kPixel420;
    fromHeaders_ = picture;
}

void PictureHeaders::_TakeLayer() {
    PictureFormat picture;
    bool valid = false;
    mpeg4_.GetImageSize(picture.width, picture.height, valid);
    if (!valid || picture.width == 0 || picture.height == 0)
        return;
    picture.pixels = mpeg4_.GetPixelFormat(valid);
    fromHeaders_ = picture;
}

MediaPacket::Frametype PictureHeaders::TypeOf(const std::uint8_t* payload, std::size_t size) {
    if (codec_ == Codec::kMpeg4Visual) {
        // From the VOP on: key frames begin with a group-of-VOP header, which the parser does not enter.
        const std::size_t start = FindStartCode(payload, size, std::array{kVopCode});
        if (start >= size)
            return MediaPacket::kFrameUnknown;
        constexpr std::size_t kLongestVopHeader = 64;
        bytes_.assign(payload + start, payload + std::min(size, start + kLongestVopHeader));
        mpeg4_.TryParse(bytes_.data(), static_cast<unsigned int>(bytes_.size()));
        bool valid = false;
        const MediaPacket::Frametype type = mpeg4_.GetFrameType(valid);
        if (valid)
            return type;
        // A frame that is not coded, or whose time stamp the parser reads a bit too long: its type stands in
        // front.
    }
    return FrameTypeOf(codec_, payload, size);
}

}  // namespace camclock::receiver
