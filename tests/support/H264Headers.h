#pragma once

#include "support/BitWriter.h"

#include <cstdint>
#include <vector>

namespace camclock::testing {

// A sequence parameter set as the standard writes it (ITU-T H.264, 7.3.2.1.1),
// header byte included, VUI left out.
struct SpsFields {
    std::uint32_t profile_idc = 66;
    std::uint32_t constraintFlags = 0;  // six bits, set0 first
    std::uint32_t level_idc = 30;
    std::uint32_t seq_parameter_set_id = 0;
    // Profiles with chroma_format_idc:
    bool carriesChroma = false;
    std::uint32_t chroma_format_idc = 1;
    bool separate_colour_plane_flag = false;
    std::uint32_t bit_depth_luma_minus8 = 0;
    std::uint32_t bit_depth_chroma_minus8 = 0;
    bool qpprime_y_zero_transform_bypass_flag = false;
    bool seq_scaling_matrix_present_flag = false;
    std::vector<std::vector<std::int32_t>> scalingLists;  // the deltas of each list; empty: not present
    std::uint32_t log2_max_frame_num_minus4 = 0;
    std::uint32_t pic_order_cnt_type = 2;
    std::uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
    bool delta_pic_order_always_zero_flag = false;
    std::int32_t offset_for_non_ref_pic = 0;
    std::int32_t offset_for_top_to_bottom_field = 0;
    std::vector<std::int32_t> offset_for_ref_frame;
    std::uint32_t max_num_ref_frames = 1;
    bool gaps_in_frame_num_value_allowed_flag = false;
    std::uint32_t pic_width_in_mbs_minus1 = 19;
    std::uint32_t pic_height_in_map_units_minus1 = 14;
    bool frame_mbs_only_flag = true;
    bool mb_adaptive_frame_field_flag = false;
    bool direct_8x8_inference_flag = true;
    bool frame_cropping_flag = false;
    std::uint32_t crop[4] = {0, 0, 0, 0};  // left, right, top, bottom
    bool vui_parameters_present_flag = false;

    // The bits up to and with vui_parameters_present_flag: what a parser without VUI needs.
    BitWriter Write() const {
        BitWriter w;
        w.U(8, 0x67).U(8, profile_idc).U(6, constraintFlags).U(2, 0).U(8, level_idc).Ue(seq_parameter_set_id);
        if (carriesChroma) {
            w.Ue(chroma_format_idc);
            if (chroma_format_idc == 3) {
                w.Flag(separate_colour_plane_flag);
            }
            w.Ue(bit_depth_luma_minus8)
                .Ue(bit_depth_chroma_minus8)
                .Flag(qpprime_y_zero_transform_bypass_flag);
            w.Flag(seq_scaling_matrix_present_flag);
            if (seq_scaling_matrix_present_flag) {
                for (const auto& list : scalingLists) {
                    w.Flag(!list.empty());
                    for (const std::int32_t delta : list) {
                        w.Se(delta);
                    }
                }
            }
        }
        w.Ue(log2_max_frame_num_minus4).Ue(pic_order_cnt_type);
        if (pic_order_cnt_type == 0) {
            w.Ue(log2_max_pic_order_cnt_lsb_minus4);
        } else if (pic_order_cnt_type == 1) {
            w.Flag(delta_pic_order_always_zero_flag)
                .Se(offset_for_non_ref_pic)
                .Se(offset_for_top_to_bottom_field);
            w.Ue(static_cast<std::uint32_t>(offset_for_ref_frame.size()));
            for (const std::int32_t offset : offset_for_ref_frame) {
                w.Se(offset);
            }
        }
        w.Ue(max_num_ref_frames).Flag(gaps_in_frame_num_value_allowed_flag);
        w.Ue(pic_width_in_mbs_minus1).Ue(pic_height_in_map_units_minus1).Flag(frame_mbs_only_flag);
        if (!frame_mbs_only_flag) {
            w.Flag(mb_adaptive_frame_field_flag);
        }
        w.Flag(direct_8x8_inference_flag).Flag(frame_cropping_flag);
        if (frame_cropping_flag) {
            w.Ue(crop[0]).Ue(crop[1]).Ue(crop[2]).Ue(crop[3]);
        }
        w.Flag(vui_parameters_present_flag);
        return w;
    }

    std::vector<unsigned char> Bytes() const { return Write().TrailingBits().Bytes(); }
};

// 1920 x 1080 of the High profile: 120 x 68 macroblocks, the lowest 8 lines cropped.
inline SpsFields FullHdSps() {
    SpsFields sps;
    sps.profile_idc = 100;
    sps.carriesChroma = true;
    sps.level_idc = 40;
    sps.pic_order_cnt_type = 0;
    sps.log2_max_pic_order_cnt_lsb_minus4 = 2;
    sps.max_num_ref_frames = 4;
    sps.pic_width_in_mbs_minus1 = 119;
    sps.pic_height_in_map_units_minus1 = 67;
    sps.frame_cropping_flag = true;
    sps.crop[3] = 4;
    return sps;
}

// A picture parameter set as the standard writes it (7.3.2.2), header byte
// included, without the High extension.
struct PpsFields {
    std::uint32_t pic_parameter_set_id = 0;
    std::uint32_t seq_parameter_set_id = 0;
    bool entropy_coding_mode_flag = true;
    bool bottom_field_pic_order_in_frame_present_flag = false;
    std::uint32_t num_slice_groups_minus1 = 0;
    std::uint32_t slice_group_map_type = 0;
    std::vector<std::uint32_t> run_length_minus1;
    std::vector<std::uint32_t> top_left;
    std::vector<std::uint32_t> bottom_right;
    bool slice_group_change_direction_flag = false;
    std::uint32_t slice_group_change_rate_minus1 = 0;
    std::vector<std::uint32_t> slice_group_id;
    std::uint32_t num_ref_idx_l0_default_active_minus1 = 0;
    std::uint32_t num_ref_idx_l1_default_active_minus1 = 0;
    bool weighted_pred_flag = false;
    std::uint32_t weighted_bipred_idc = 0;
    std::int32_t pic_init_qp_minus26 = 0;
    std::int32_t pic_init_qs_minus26 = 0;
    std::int32_t chroma_qp_index_offset = 0;
    bool deblocking_filter_control_present_flag = true;
    bool constrained_intra_pred_flag = false;
    bool redundant_pic_cnt_present_flag = false;

    BitWriter Write() const {
        BitWriter w;
        w.U(8, 0x68).Ue(pic_parameter_set_id).Ue(seq_parameter_set_id).Flag(entropy_coding_mode_flag);
        w.Flag(bottom_field_pic_order_in_frame_present_flag).Ue(num_slice_groups_minus1);
        if (num_slice_groups_minus1 > 0) {
            w.Ue(slice_group_map_type);
            switch (slice_group_map_type) {
            case 0:
                for (const auto length : run_length_minus1) {
                    w.Ue(length);
                }
                break;
            case 2:
                for (std::size_t i = 0; i < top_left.size(); ++i) {
                    w.Ue(top_left[i]).Ue(bottom_right[i]);
                }
                break;
            case 3:
            case 4:
            case 5: w.Flag(slice_group_change_direction_flag).Ue(slice_group_change_rate_minus1); break;
            case 6: {
                w.Ue(static_cast<std::uint32_t>(slice_group_id.size() - 1));
                int bits = 0;  // Ceil(Log2(num_slice_groups_minus1 + 1))
                while ((1U << static_cast<unsigned>(bits)) < num_slice_groups_minus1 + 1) {
                    ++bits;
                }
                for (const auto id : slice_group_id) {
                    w.U(bits, id);
                }
                break;
            }
            default: break;
            }
        }
        w.Ue(num_ref_idx_l0_default_active_minus1).Ue(num_ref_idx_l1_default_active_minus1);
        w.Flag(weighted_pred_flag).U(2, weighted_bipred_idc);
        w.Se(pic_init_qp_minus26).Se(pic_init_qs_minus26).Se(chroma_qp_index_offset);
        w.Flag(deblocking_filter_control_present_flag).Flag(constrained_intra_pred_flag);
        return w.Flag(redundant_pic_cnt_present_flag);
    }

    std::vector<unsigned char> Bytes() const { return Write().TrailingBits().Bytes(); }
};

}  // namespace camclock::testing
