#include <camclock/ParameterSetParser.h>

#include <algorithm>

namespace camclock {
namespace {

constexpr std::uint32_t kMaxCycle = 255;      // ITU-T H.264, 7.4.2.1.1: num_ref_frames_in_pic_order_cnt_cycle
constexpr std::uint32_t kMaxSliceGroups = 8;  // ITU-T H.264, A.2: num_slice_groups_minus1 is 7 at most

// A count in the stream may say 2^32 - 1 where a few bytes follow. Reading ends with the data: every entry
// after that is 0, and only those within the standard's own limit are kept, so that a record that a user
// walks by its count is complete for every count that the standard allows.
template <typename T>
void FillUp(std::vector<T>& list, std::uint64_t count, std::uint32_t standardLimit) {
    if (list.size() < count && list.size() < standardLimit) {
        list.resize(static_cast<std::size_t>((std::min)(count, std::uint64_t{standardLimit})));
    }
}

}  // namespace

ParameterSetParser::ParameterSetParser() = default;

ParameterSetParser::ParameterSetParser(const ParameterSetParser& other)
    : BinaryStreamParser(other)
    , ppsText_(other.ppsText_)
    , spsText_(other.spsText_)
    , ppsBytes_(other.ppsBytes_)
    , spsBytes_(other.spsBytes_)
    , sps_(other.sps_)
    , pps_(other.pps_) {
    _RebaseBuffer(other);
}

ParameterSetParser& ParameterSetParser::operator=(const ParameterSetParser& other) {
    BinaryStreamParser::operator=(other);
    ppsText_ = other.ppsText_;
    spsText_ = other.spsText_;
    ppsBytes_ = other.ppsBytes_;
    spsBytes_ = other.spsBytes_;
    sps_ = other.sps_;
    pps_ = other.pps_;
    _RebaseBuffer(other);
    return *this;
}

ParameterSetParser::~ParameterSetParser() = default;

// A copy whose original read its own decoded bytes goes on in the copied bytes: the two live independently.
void ParameterSetParser::_RebaseBuffer(const ParameterSetParser& other) {
    if (buffer_ == nullptr) {
        return;
    }
    if (buffer_ == other.spsBytes_.data()) {
        buffer_ = spsBytes_.data();
    } else if (buffer_ == other.ppsBytes_.data()) {
        buffer_ = ppsBytes_.data();
    }
}

void ParameterSetParser::SetSPSArray(unsigned char* data, unsigned int size) {
    ParseSPS(data, size, sps_);
}

void ParameterSetParser::SetPPSArray(unsigned char* data, unsigned int size) {
    ParsePPS(data, size, pps_);
}

void ParameterSetParser::ParseSPS(unsigned char* data, unsigned int size, SPSset& out) {
    out = SPSset{};
    InitParser(data, size);
    _ParseNALHeader();

    out.profile_idc = _ReadBits(8);
    out.constraint_set0_flag = _ReadBit();
    out.constraint_set1_flag = _ReadBit();
    out.constraint_set2_flag = _ReadBit();
    out.constraint_set3_flag = _ReadBit();
    out.constraint_set4_flag = _ReadBit();
    out.constraint_set5_flag = _ReadBit();
    out.reserved_zero_2bits = _ReadBits(2);
    out.level_idc = _ReadBits(8);
    out.seq_parameter_set_id = _ReadExponentialGolombCode();

    // Deliberate: of the profiles that carry these fields only four are known
    // (ParameterSetParser.OnlyFourProfilesCarryTheChromaFormat).
    if (out.profile_idc == 100 || out.profile_idc == 110 || out.profile_idc == 122 ||
        out.profile_idc == 144) {
        out.chroma_format_idc = _ReadExponentialGolombCode();
        if (out.chroma_format_idc == 3) {
            out.separate_colour_plane_flag = _ReadBit();
        }
        out.bit_depth_luma_minus8 = _ReadExponentialGolombCode();
        out.bit_depth_chroma_minus8 = _ReadExponentialGolombCode();
        out.qpprime_y_zero_transform_bypass_flag = _ReadBit();
        out.seq_scaling_matrix_present_flag = _ReadBit();
        if (out.seq_scaling_matrix_present_flag != 0) {
            out.seq_scaling_list_present_flag.resize(out.chroma_format_idc == 3 ? 12 : 8);
            for (std::size_t i = 0; i < out.seq_scaling_list_present_flag.size(); ++i) {
                out.seq_scaling_list_present_flag[i] = _ReadBit();
                if (out.seq_scaling_list_present_flag[i] != 0) {
                    _SkipScalingList(/*sixteenEntries=*/i < 6);
                }
            }
        }
    }

    out.log2_max_frame_num_minus4 = _ReadExponentialGolombCode();
    out.pic_order_cnt_type = _ReadExponentialGolombCode();
    if (out.pic_order_cnt_type == 0) {
        out.log2_max_pic_order_cnt_lsb_minus4 = _ReadExponentialGolombCode();
    } else if (out.pic_order_cnt_type == 1) {
        out.delta_pic_order_always_zero_flag = _ReadBit();
        out.offset_for_non_ref_pic = static_cast<std::int32_t>(_ReadSE());
        out.offset_for_top_to_bottom_field = static_cast<std::int32_t>(_ReadSE());
        out.num_ref_frames_in_pic_order_cnt_cycle = _ReadExponentialGolombCode();
        const std::uint32_t count = out.num_ref_frames_in_pic_order_cnt_cycle;
        out.offset_for_ref_frame.reserve((std::min)(count, kMaxCycle));
        for (std::uint32_t i = 0; i < count && !endOfData_; ++i) {
            out.offset_for_ref_frame.push_back(static_cast<std::int32_t>(_ReadSE()));
        }
        FillUp(out.offset_for_ref_frame, count, kMaxCycle);
    }

    out.max_num_ref_frames = _ReadExponentialGolombCode();
    out.gaps_in_frame_num_value_allowed_flag = _ReadBit();
    out.pic_width_in_mbs_minus1 = _ReadExponentialGolombCode();
    out.pic_height_in_map_units_minus1 = _ReadExponentialGolombCode();
    out.frame_mbs_only_flag = _ReadBit();
    if (out.frame_mbs_only_flag == 0) {
        out.mb_adaptive_frame_field_flag = _ReadBit();
    }
    out.direct_8x8_inference_flag = _ReadBit();
    out.frame_cropping_flag = _ReadBit();
    if (out.frame_cropping_flag != 0) {
        out.frame_crop_left_offset = _ReadExponentialGolombCode();
        out.frame_crop_right_offset = _ReadExponentialGolombCode();
        out.frame_crop_top_offset = _ReadExponentialGolombCode();
        out.frame_crop_bottom_offset = _ReadExponentialGolombCode();
    }
    out.vui_parameters_present_flag = _ReadBit();

    out.valid = !endOfData_;
}

void ParameterSetParser::ParsePPS(unsigned char* data, unsigned int size, PPSset& out) {
    out = PPSset{};
    InitParser(data, size);
    _ParseNALHeader();

    out.pic_parameter_set_id = _ReadExponentialGolombCode();
    out.seq_parameter_set_id = _ReadExponentialGolombCode();
    out.entropy_coding_mode_flag = _ReadBit();
    out.bottom_field_pic_order_in_frame_present_flag = _ReadBit();
    out.num_slice_groups_minus1 = _ReadExponentialGolombCode();
    if (out.num_slice_groups_minus1 != 0) {
        const std::uint32_t groups = out.num_slice_groups_minus1;
        out.slice_group_map_type = _ReadExponentialGolombCode();
        switch (out.slice_group_map_type) {
        case 0:
            for (std::uint64_t i = 0; i <= groups && !endOfData_; ++i) {
                out.run_length_minus1.push_back(_ReadExponentialGolombCode());
            }
            FillUp(out.run_length_minus1, std::uint64_t{groups} + 1, kMaxSliceGroups);
            break;
        case 2:
            for (std::uint32_t i = 0; i < groups && !endOfData_; ++i) {
                out.top_left.push_back(_ReadExponentialGolombCode());
                out.bottom_right.push_back(_ReadExponentialGolombCode());
            }
            FillUp(out.top_left, groups, kMaxSliceGroups);
            FillUp(out.bottom_right, groups, kMaxSliceGroups);
            break;
        case 3:
        case 4:
        case 5:
            out.slice_group_change_direction_flag = _ReadBit();
            out.slice_group_change_rate_minus1 = _ReadExponentialGolombCode();
            break;
        case 6:
            // Deliberate: the slice_group_id list behind it is not read, so every later field is read from
            // the wrong place (ParameterSetParser.SliceGroupIdsAreNotRead).
            out.pic_size_in_map_units_minus1 = _ReadExponentialGolombCode();
            break;
        default: break;
        }
    }
    out.num_ref_idx_l0_default_active_minus1 = _ReadExponentialGolombCode();
    out.num_ref_idx_l1_default_active_minus1 = _ReadExponentialGolombCode();
    out.weighted_pred_flag = _ReadBit();
    out.weighted_bipred_idc = _ReadBits(2);
    // Deliberate: the code numbers are kept as they are, not mapped to signed values
    // (ParameterSetParser.QuantiserOffsetsAreCodeNumbers).
    out.pic_init_qp_minus26 = _ReadExponentialGolombCode();
    out.pic_init_qs_minus26 = _ReadExponentialGolombCode();
    out.chroma_qp_index_offset = _ReadExponentialGolombCode();
    out.deblocking_filter_control_present_flag = _ReadBit();
    out.constrained_intra_pred_flag = _ReadBit();
    out.redundant_pic_cnt_present_flag = _ReadBit();

    out.valid = !endOfData_;
}

void ParameterSetParser::GetImageSize(unsigned int& width, unsigned int& height) const {
    if (!sps_.valid) {
        return;
    }
    width = ((sps_.pic_width_in_mbs_minus1 + 1) * 8 - sps_.frame_crop_right_offset -
             sps_.frame_crop_left_offset) *
            2;
    height = ((2 - sps_.frame_mbs_only_flag) * (sps_.pic_height_in_map_units_minus1 + 1) * 8 -
              sps_.frame_crop_bottom_offset - sps_.frame_crop_top_offset) *
             2;
}

MediaPacket::PixelFormat ParameterSetParser::GetPixelFormat() const {
    if (!sps_.valid) {
        return MediaPacket::kPixelUnknown;
    }
    switch (sps_.chroma_format_idc) {
    case 0: return MediaPacket::kPixelMonochrome;
    case 1: return MediaPacket::kPixel420;
    case 2: return MediaPacket::kPixel422;
    case 3: return MediaPacket::kPixel444;
    default: return MediaPacket::kPixelUnknown;
    }
}

// forbidden_zero_bit, nal_ref_idc, nal_unit_type (ITU-T H.264, 7.3.1): which set it is, the caller knows.
void ParameterSetParser::_ParseNALHeader() {
    _ReadBit();
    _ReadBits(2);
    _ReadBits(5);
}

// Deliberate: every delta is added to 8 instead of the scale before it, and of the lists of 64 entries one
// code is read (ParameterSetParser.ScalingListsAreSkippedByAFixedRule).
void ParameterSetParser::_SkipScalingList(bool sixteenEntries) {
    if (!sixteenEntries) {
        _ReadSE();
        return;
    }
    for (int j = 0; j < 16; ++j) {
        if ((8U + _ReadSE()) % 256U == 0) {
            return;
        }
    }
}

// One scaling list (7.3.2.1.1.1); with a null `list` the deltas all count from 8. No parsing step calls it.
void ParameterSetParser::_ReadScalingList(unsigned int* list, int size, bool /*useDefault*/) {
    unsigned int last = 8;
    unsigned int next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            next = (last + _ReadSE()) % 256U;
        }
        if (list != nullptr) {
            list[j] = next != 0 ? next : last;
            last = list[j];
        }
    }
}

}  // namespace camclock
