#pragma once

#include <camclock/BinaryStreamParser.h>
#include <camclock/Export.h>
#include <camclock/MediaPacket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace camclock {

/// A sequence parameter set, as far as it is read (ITU-T H.264, 7.3.2.1.1); the names are the standard's. A
/// field that the stream does not carry is 0, also where the standard infers another value. A one-bit field
/// that was read past the end of the data holds 32 ones; `valid` is false then.
struct SPSset {
    bool valid = false;  ///< everything was read before the data ran out
    std::uint32_t profile_idc = 0;
    std::uint32_t constraint_set0_flag = 0;
    std::uint32_t constraint_set1_flag = 0;
    std::uint32_t constraint_set2_flag = 0;
    std::uint32_t constraint_set3_flag = 0;
    std::uint32_t constraint_set4_flag = 0;
    std::uint32_t constraint_set5_flag = 0;
    std::uint32_t reserved_zero_2bits = 0;
    std::uint32_t level_idc = 0;
    std::uint32_t seq_parameter_set_id = 0;
    std::uint32_t chroma_format_idc = 0;  ///< profiles 100, 110, 122 and 144 only
    std::uint32_t separate_colour_plane_flag = 0;
    std::uint32_t bit_depth_luma_minus8 = 0;
    std::uint32_t bit_depth_chroma_minus8 = 0;
    std::uint32_t qpprime_y_zero_transform_bypass_flag = 0;
    std::uint32_t seq_scaling_matrix_present_flag = 0;
    std::vector<std::uint32_t> seq_scaling_list_present_flag;  ///< 8 or 12 flags, or none without a matrix
    std::uint32_t log2_max_frame_num_minus4 = 0;
    std::uint32_t pic_order_cnt_type = 0;
    std::uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
    std::uint32_t delta_pic_order_always_zero_flag = 0;
    std::int32_t offset_for_non_ref_pic = 0;
    std::int32_t offset_for_top_to_bottom_field = 0;
    std::uint32_t num_ref_frames_in_pic_order_cnt_cycle = 0;
    /// One per entry of the cycle. Where the data ends before a cycle longer than the 255 entries that the
    /// standard allows does, the entries that are not in the data, zeros all of them, are left out beyond the
    /// 255th, but for one where the data ends between two entries.
    std::vector<std::int32_t> offset_for_ref_frame;
    std::uint32_t max_num_ref_frames = 0;
    std::uint32_t gaps_in_frame_num_value_allowed_flag = 0;
    std::uint32_t pic_width_in_mbs_minus1 = 0;
    std::uint32_t pic_height_in_map_units_minus1 = 0;
    std::uint32_t frame_mbs_only_flag = 0;
    std::uint32_t mb_adaptive_frame_field_flag = 0;
    std::uint32_t direct_8x8_inference_flag = 0;
    std::uint32_t frame_cropping_flag = 0;
    std::uint32_t frame_crop_left_offset = 0;
    std::uint32_t frame_crop_right_offset = 0;
    std::uint32_t frame_crop_top_offset = 0;
    std::uint32_t frame_crop_bottom_offset = 0;
    std::uint32_t vui_parameters_present_flag = 0;  ///< the VUI itself is not read
};

/// A picture parameter set, as far as it is read (ITU-T H.264, 7.3.2.2); see
/// `SPSset` for what holds for all fields.
struct PPSset {
    bool valid = false;  ///< everything was read before the data ran out
    std::uint32_t pic_parameter_set_id = 0;
    std::uint32_t seq_parameter_set_id = 0;
    std::uint32_t entropy_coding_mode_flag = 0;
    std::uint32_t bottom_field_pic_order_in_frame_present_flag = 0;
    std::uint32_t num_slice_groups_minus1 = 0;
    std::uint32_t slice_group_map_type = 0;
    /// Map type 0: num_slice_groups_minus1 + 1 entries. In all three lists, where the data ends before more
    /// entries than the 8 that the standard allows do, those that are not in the data, zeros all of them, are
    /// left out beyond the 8th, again but for one.
    std::vector<std::uint32_t> run_length_minus1;
    std::vector<std::uint32_t> top_left;      ///< map type 2: num_slice_groups_minus1 entries
    std::vector<std::uint32_t> bottom_right;  ///< map type 2: num_slice_groups_minus1 entries
    std::uint32_t slice_group_change_direction_flag = 0;
    std::uint32_t slice_group_change_rate_minus1 = 0;
    std::uint32_t pic_size_in_map_units_minus1 = 0;
    std::uint32_t num_ref_idx_l0_default_active_minus1 = 0;
    std::uint32_t num_ref_idx_l1_default_active_minus1 = 0;
    std::uint32_t weighted_pred_flag = 0;
    std::uint32_t weighted_bipred_idc = 0;
    std::uint32_t pic_init_qp_minus26 =
        0;  ///< the code number: the standard's value k is 2k - 1 for k > 0, else -2k
    std::uint32_t pic_init_qs_minus26 = 0;     ///< the code number, likewise
    std::uint32_t chroma_qp_index_offset = 0;  ///< the code number, likewise
    std::uint32_t deblocking_filter_control_present_flag = 0;
    std::uint32_t constrained_intra_pred_flag = 0;
    std::uint32_t redundant_pic_cnt_present_flag = 0;
};

/// How large are the pictures of an H.264 stream, and what is their pixel format? Parses the sequence and
/// picture parameter sets, out of an SDP's `sprop-parameter-sets` (RFC 6184, 8.1) or as raw NAL units.
///
/// Where it leaves the standard it does so on purpose: docs/departures.md lists every place. Emulation
/// prevention bytes (ITU-T H.264, 7.4.1.1) are not taken out.
///
/// Owned by the application, one per stream; copies are independent of each other. One thread at a
/// time per object. Nothing is thrown but `std::bad_alloc`. Any bytes may be handed in; time and
/// memory grow linearly with them.
///
///     camclock::ParameterSetParser parser;
///     std::string sprops = "Z0IAHpWoKA9k,aM48gA==";
///     parser.SetSpropsString(sprops);
///     unsigned int width = 0, height = 0;
///     parser.GetImageSize(width, height);
class CAMCLOCK_API ParameterSetParser : public BinaryStreamParser {
public:
    /// Without parameter sets: both records are zero, so both are invalid.
    ParameterSetParser();
    ParameterSetParser(const ParameterSetParser& other);
    ParameterSetParser& operator=(const ParameterSetParser& other);
    ~ParameterSetParser() override;

    /// Takes the first two entries of `sprops` apart: base64 NAL units, separated by commas, in any
    /// order. A sequence parameter set replaces the present one, a picture parameter set likewise;
    /// any other entry is passed over. With fewer than two entries, what is there is parsed. Of an
    /// entry at most 2046 bytes are decoded.
    ///
    /// `sprops` is changed: the comma behind each of the two entries is overwritten with a zero byte. A zero
    /// byte in it ends the text. Commas in front of an entry are passed over.
    ///
    /// The base64 has to be clean: a character between '+' and 'z' that is no digit is passed over, but any
    /// other one, a space or line break too, corrupts what follows it. Zero bytes at the end of an entry, up
    /// to three, are taken for padding and lost.
    void SetSpropsString(std::string& sprops);

    /// Parses `size` bytes at `data`, one NAL unit with its header byte and without start code, as the
    /// sequence parameter set. The bytes are only read during the call.
    void SetSPSArray(unsigned char* data, unsigned int size);

    /// The same for the picture parameter set.
    void SetPPSArray(unsigned char* data, unsigned int size);

    /// Parses a NAL unit into `out`, which is cleared first; the parser's own records stay as they are. The
    /// type in the NAL header is not looked at.
    void ParseSPS(unsigned char* data, unsigned int size, SPSset& out);
    void ParsePPS(unsigned char* data, unsigned int size, PPSset& out);

    /// Size of the picture in pixels, less its cropping, modulo 2^32. Without a valid sequence parameter set
    /// both outputs are left as they are.
    ///
    /// Deliberate: cropping is counted in units of 2 pixels in both directions, whatever the chroma format
    /// and also for streams coded in fields (ParameterSetParser.CropUnitIsTwoForFieldCodedStreams).
    void GetImageSize(unsigned int& width, unsigned int& height) const;

    /// Pixel format by chroma_format_idc; `kPixelUnknown` without a valid sequence parameter set.
    ///
    /// Deliberate: profiles that carry no chroma_format_idc, Baseline and Main among them, count as
    /// monochrome, although they are 4:2:0 (ParameterSetParser.BaselineReportsMonochrome).
    MediaPacket::PixelFormat GetPixelFormat() const;

    /// The present records; valid as long as the parser.
    const SPSset& GetSPS() const { return sps_; }
    const PPSset& GetPPS() const { return pps_; }

private:
    friend struct ParserTestAccess;

    static void _DecodeBase64(std::string& text, unsigned char* out, int& length);
    void _SetPropString(std::string& text, unsigned char* bytes, int length);
    void _ParseNALHeader();
    void _ReadScalingList(unsigned int* list, int size, bool useDefault);
    void _SkipScalingList(bool sixteenEntries);
    void _RebaseBuffer(const ParameterSetParser& other);

    std::string ppsText_;                  // the base64 text that the present PPS came from
    std::string spsText_;                  // ... and the present SPS
    std::vector<unsigned char> ppsBytes_;  // the NAL units decoded from them
    std::vector<unsigned char> spsBytes_;
    SPSset sps_;
    PPSset pps_;
};

}  // namespace camclock
