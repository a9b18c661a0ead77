#include "receiver/PictureHeaders.h"

#include "receiver/Base64.h"
#include "receiver/H265Sps.h"
#include "receiver/NalUnits.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace camclock::receiver {
namespace {

constexpr unsigned int kSequenceCode = 0xB0;  // last byte of the start codes of ISO/IEC 14496-2, table 6-3
constexpr unsigned int kObjectCode = 0xB5;

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
    _TakeDescription(description);
}

void PictureHeaders::_TakeDescription(const std::string& description) {
    std::string text = description;  // the library's parsers mark it
    switch (codec_) {
    case Codec::kH264:
        h264_.SetSpropsString(text);
        _TakeSps();
        break;
    case Codec::kH265:
        for (const std::vector<std::uint8_t>& nal : DecodeBase64List(description))
            _TakeParameterSet(nal.data(), nal.size());
        break;
    case Codec::kMpeg4Visual:
        mpeg4_.TryParseString(text);
        _TakeLayer();
        break;
    case Codec::kMjpeg:
    case Codec::kOther: break;
    }
}

void PictureHeaders::TakeFallback(unsigned int width, unsigned int height) {
    const bool isMpeg4 = codec_ == Codec::kMpeg4Visual;
    fallback_ = PictureFormat{width, height, isMpeg4 ? MediaPacket::kPixel420 : MediaPacket::kPixelUnknown};
}

void PictureHeaders::Take(const std::uint8_t* payload, std::size_t size) {
    if (fromHeaders_ || size == 0)
        return;
    switch (codec_) {
    case Codec::kH264:
    case Codec::kH265: _TakeNalUnits(payload, size); break;
    case Codec::kMpeg4Visual: _TakeConfiguration(payload, size); break;
    case Codec::kMjpeg: _TakeJpeg(payload, size); break;
    case Codec::kOther: break;
    }
}

void PictureHeaders::_TakeNalUnits(const std::uint8_t* payload, std::size_t size) {
    ForEachNalUnit(codec_, payload, size, [this](const NalUnit& unit) {
        const std::size_t header = NalHeaderSize(codec_);
        if (unit.whole)
            _TakeParameterSet(unit.body - header, unit.size + header);
        return !fromHeaders_;
    });
}

void PictureHeaders::_TakeParameterSet(const std::uint8_t* nal, std::size_t size) {
    if (codec_ == Codec::kH265) {
        if (const auto picture = PictureOfH265Sps(nal, size))
            fromHeaders_ = picture;
        return;
    }
    constexpr unsigned int kSps = 7;
    if ((nal[0] & 0x1FU) != kSps)
        return;
    bytes_.assign(nal, nal + std::min(size, kLongestHeader));
    h264_.SetSPSArray(bytes_.data(), static_cast<unsigned int>(bytes_.size()));
    _TakeSps();
}

void PictureHeaders::_TakeConfiguration(const std::uint8_t* payload, std::size_t size) {
    const std::size_t searched = std::min(size, kLongestHeader);
    const std::size_t start = FindStartCode(payload, searched, std::array{kSequenceCode, kObjectCode});
    if (start >= searched)
        return;
    bytes_.assign(payload + start, payload + std::min(size, start + kLongestHeader));
    mpeg4_.TryParse(bytes_.data(), static_cast<unsigned int>(bytes_.size()));
    _TakeLayer();
}

void PictureHeaders::_TakeJpeg(const std::uint8_t* payload, std::size_t size) {
    constexpr std::size_t kHeader = 8;  // RFC 2435, 3.1
    if (size < kHeader || payload[6] == 0 || payload[7] == 0)
        return;
    PictureFormat picture;
    picture.width = 8U * payload[6];
    picture.height = 8U * payload[7];
    // Types 64 to 127 are 0 to 63 with restart markers; 0 halves the colour's width, 1 its height as well.
    switch (payload[4]) {
    case 0:
    case 64: picture.pixels = MediaPacket::kPixel422; break;
    case 1:
    case 65: picture.pixels = MediaPacket::kPixel420; break;
    default: break;
    }
    fromHeaders_ = picture;
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

}  // namespace camclock::receiver
