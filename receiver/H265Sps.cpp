#include "receiver/H265Sps.h"

#include "receiver/Bits.h"

#include <array>

namespace camclock::receiver {
namespace {

/// The bytes of a NAL unit without the 3 of each 00 00 03 (7.3.1.1, emulation_prevention_three_byte). What is
/// read stands far in front of the end of the array.
class Rbsp {
public:
    Rbsp(const std::uint8_t* nal, std::size_t size) {
        unsigned zeros = 0;
        for (std::size_t i = 0; i < size && size_ < bytes_.size(); ++i) {
            if (zeros >= 2 && nal[i] == 3) {
                zeros = 0;
                continue;
            }
            zeros = nal[i] == 0 ? zeros + 1 : 0;
            bytes_[size_++] = nal[i];
        }
    }

    const std::uint8_t* Data() const { return bytes_.data(); }
    std::size_t Size() const { return size_; }

private:
    // 7 sub-layers of 12 bytes, the general part, and eight codes.
    std::array<std::uint8_t, 160> bytes_{};
    std::size_t size_ = 0;
};

/// profile_tier_level(1, sps_max_sub_layers_minus1), 7.3.3
void SkipProfileTierLevel(Bits& bits, unsigned max_sub_layers_minus1) {
    constexpr std::size_t kProfile = 88;
    constexpr std::size_t kLevel = 8;
    bits.Skip(kProfile + kLevel);
    std::size_t subLayers = 0;
    for (unsigned i = 0; i < max_sub_layers_minus1; ++i) {
        subLayers += bits.Bit() != 0 ? kProfile : 0;  // sub_layer_profile_present_flag
        subLayers += bits.Bit() != 0 ? kLevel : 0;    // sub_layer_level_present_flag
    }
    if (max_sub_layers_minus1 > 0)
        bits.Skip(2 * std::size_t{8 - max_sub_layers_minus1});  // reserved_zero_2bits
    bits.Skip(subLayers);
}

constexpr std::array kPixelFormats{MediaPacket::kPixelMonochrome, MediaPacket::kPixel420,
                                   MediaPacket::kPixel422, MediaPacket::kPixel444};

/// What is left of `length` without both ends of the conformance window, in units of `unit` samples.
unsigned Cropped(unsigned length, unsigned unit, unsigned first, unsigned last) {
    const unsigned crop = unit * (first + last);
    return crop < length ? length - crop : 0;
}

}  // namespace

std::optional<PictureFormat> PictureOfH265Sps(const std::uint8_t* nal, std::size_t size) {
    constexpr std::size_t kHeader = 2;
    constexpr unsigned kSps = 33;
    if (size < kHeader || (nal[0] >> 1U & 0x3FU) != kSps)
        return std::nullopt;
    const Rbsp rbsp(nal + kHeader, size - kHeader);
    Bits bits(rbsp.Data(), rbsp.Size());
    bits.Skip(4);  // sps_video_parameter_set_id
    const unsigned max_sub_layers_minus1 = bits.U(3);
    bits.Skip(1);  // sps_temporal_id_nesting_flag
    SkipProfileTierLevel(bits, max_sub_layers_minus1);

    unsigned sps_id = 0;
    unsigned chroma_format_idc = 0;
    if (!bits.Ue(sps_id) || !bits.Ue(chroma_format_idc) || chroma_format_idc >= kPixelFormats.size())
        return std::nullopt;
    const bool separate_colour_plane_flag = chroma_format_idc == 3 && bits.Bit() != 0;
    PictureFormat picture;
    if (!bits.Ue(picture.width) || !bits.Ue(picture.height) || bits.AtEnd())
        return std::nullopt;
    picture.pixels = separate_colour_plane_flag ? MediaPacket::kPixel444 : kPixelFormats[chroma_format_idc];
    const bool conformance_window_flag = bits.Bit() != 0;
    if (conformance_window_flag) {
        unsigned left = 0;
        unsigned right = 0;
        unsigned top = 0;
        unsigned bottom = 0;
        if (!bits.Ue(left) || !bits.Ue(right) || !bits.Ue(top) || !bits.Ue(bottom))
            return std::nullopt;
        // SubWidthC and SubHeightC (table 6-1)
        picture.width =
            Cropped(picture.width, chroma_format_idc == 1 || chroma_format_idc == 2 ? 2 : 1, left, right);
        picture.height = Cropped(picture.height, chroma_format_idc == 1 ? 2 : 1, top, bottom);
    }
    if (picture.width == 0 || picture.height == 0)
        return std::nullopt;
    return picture;
}

}  // namespace camclock::receiver
