#pragma once

#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace camclock::bench {

/// Bits as one would read them at first: one call a bit, with its own check against the end.
class PlainBits {
public:
    PlainBits(const unsigned char* data, std::size_t size)
        : data_(data)
        , bits_(8 * size) {}

    std::uint32_t Bit() {
        if (position_ >= bits_) {
            end_ = true;
            return 0xFFFFFFFF;
        }
        const std::uint32_t bit =
            (static_cast<std::uint32_t>(data_[position_ / 8]) >> (7 - position_ % 8)) & 1;
        ++position_;
        return bit;
    }

    std::uint32_t Bits(int n) {
        std::uint32_t value = 0;
        for (int k = n - 1; k >= 0; --k)
            value |= Bit() << (k % 32);
        return value;
    }

    std::uint32_t Peek(int n) {
        const std::size_t position = position_;
        const std::uint32_t value = Bits(n);
        position_ = position;
        return value;
    }

    std::uint32_t Ue() {
        int zeros = 0;
        for (std::uint32_t bit = Bit(); bit == 0 && zeros < 32; bit = Bit())
            ++zeros;
        return Bits(zeros) - 1 + (1U << (zeros % 32));
    }

    std::uint32_t Se() {
        const std::uint32_t code = Ue();
        return code % 2 == 1 ? static_cast<std::uint32_t>(static_cast<std::int32_t>(code + 1) / 2)
                             : 0U - code / 2;
    }

    void Align() {
        Bit();
        while (position_ % 8 != 0)
            Bit();
    }

    bool End() const { return end_; }
    std::size_t Left() const { return bits_ - position_; }

private:
    const unsigned char* data_;
    std::size_t bits_;
    std::size_t position_ = 0;
    bool end_ = false;
};

/// forbidden_zero_bit, nal_ref_idc, nal_unit_type.
inline void PlainNalHeader(PlainBits& bits) {
    bits.Bit();
    bits.Bits(2);
    bits.Bits(5);
}

/// Every field of a sequence parameter set up to the VUI flag.
inline SPSset PlainParseSps(const unsigned char* data, std::size_t size) {
    SPSset sps;
    PlainBits bits(data, size);
    PlainNalHeader(bits);
    sps.profile_idc = bits.Bits(8);
    sps.constraint_set0_flag = bits.Bit();
    sps.constraint_set1_flag = bits.Bit();
    sps.constraint_set2_flag = bits.Bit();
    sps.constraint_set3_flag = bits.Bit();
    sps.constraint_set4_flag = bits.Bit();
    sps.constraint_set5_flag = bits.Bit();
    sps.reserved_zero_2bits = bits.Bits(2);
    sps.level_idc = bits.Bits(8);
    sps.seq_parameter_set_id = bits.Ue();
    if (sps.profile_idc == 100 || sps.profile_idc == 110 || sps.profile_idc == 122 ||
        sps.profile_idc == 144) {
        sps.chroma_format_idc = bits.Ue();
        if (sps.chroma_format_idc == 3)
            sps.separate_colour_plane_flag = bits.Bit();
        sps.bit_depth_luma_minus8 = bits.Ue();
        sps.bit_depth_chroma_minus8 = bits.Ue();
        sps.qpprime_y_zero_transform_bypass_flag = bits.Bit();
        sps.seq_scaling_matrix_present_flag = bits.Bit();
        if (sps.seq_scaling_matrix_present_flag != 0) {
            sps.seq_scaling_list_present_flag.resize(sps.chroma_format_idc == 3 ? 12 : 8);
            for (std::size_t i = 0; i < sps.seq_scaling_list_present_flag.size(); ++i) {
                sps.seq_scaling_list_present_flag[i] = bits.Bit();
                if (sps.seq_scaling_list_present_flag[i] == 0)
                    continue;
                if (i >= 6) {
                    bits.Se();
                    continue;
                }
                std::uint32_t next = 8;
                for (int j = 0; j < 16; ++j) {
                    if (next != 0)
                        next = (8 + bits.Se()) % 256;
                }
            }
        }
    }
    sps.log2_max_frame_num_minus4 = bits.Ue();
    sps.pic_order_cnt_type = bits.Ue();
    if (sps.pic_order_cnt_type == 0) {
        sps.log2_max_pic_order_cnt_lsb_minus4 = bits.Ue();
    } else if (sps.pic_order_cnt_type == 1) {
        sps.delta_pic_order_always_zero_flag = bits.Bit();
        sps.offset_for_non_ref_pic = static_cast<std::int32_t>(bits.Se());
        sps.offset_for_top_to_bottom_field = static_cast<std::int32_t>(bits.Se());
        sps.num_ref_frames_in_pic_order_cnt_cycle = bits.Ue();
        for (std::uint32_t i = 0; i < sps.num_ref_frames_in_pic_order_cnt_cycle && !bits.End(); ++i)
            sps.offset_for_ref_frame.push_back(static_cast<std::int32_t>(bits.Se()));
    }
    sps.max_num_ref_frames = bits.Ue();
    sps.gaps_in_frame_num_value_allowed_flag = bits.Bit();
    sps.pic_width_in_mbs_minus1 = bits.Ue();
    sps.pic_height_in_map_units_minus1 = bits.Ue();
    sps.frame_mbs_only_flag = bits.Bit();
    if (sps.frame_mbs_only_flag == 0)
        sps.mb_adaptive_frame_field_flag = bits.Bit();
    sps.direct_8x8_inference_flag = bits.Bit();
    sps.frame_cropping_flag = bits.Bit();
    if (sps.frame_cropping_flag != 0) {
        sps.frame_crop_left_offset = bits.Ue();
        sps.frame_crop_right_offset = bits.Ue();
        sps.frame_crop_top_offset = bits.Ue();
        sps.frame_crop_bottom_offset = bits.Ue();
    }
    sps.vui_parameters_present_flag = bits.Bit();
    sps.valid = !bits.End();
    return sps;
}

/// Every field of a picture parameter set up to the flag of redundant pictures.
inline PPSset PlainParsePps(const unsigned char* data, std::size_t size) {
    PPSset pps;
    PlainBits bits(data, size);
    PlainNalHeader(bits);
    pps.pic_parameter_set_id = bits.Ue();
    pps.seq_parameter_set_id = bits.Ue();
    pps.entropy_coding_mode_flag = bits.Bit();
    pps.bottom_field_pic_order_in_frame_present_flag = bits.Bit();
    pps.num_slice_groups_minus1 = bits.Ue();
    if (pps.num_slice_groups_minus1 != 0) {
        pps.slice_group_map_type = bits.Ue();
        if (pps.slice_group_map_type == 0) {
            for (std::uint32_t i = 0; i <= pps.num_slice_groups_minus1 && !bits.End(); ++i)
                pps.run_length_minus1.push_back(bits.Ue());
        } else if (pps.slice_group_map_type == 2) {
            for (std::uint32_t i = 0; i < pps.num_slice_groups_minus1 && !bits.End(); ++i) {
                pps.top_left.push_back(bits.Ue());
                pps.bottom_right.push_back(bits.Ue());
            }
        } else if (pps.slice_group_map_type >= 3 && pps.slice_group_map_type <= 5) {
            pps.slice_group_change_direction_flag = bits.Bit();
            pps.slice_group_change_rate_minus1 = bits.Ue();
        } else if (pps.slice_group_map_type == 6) {
            pps.pic_size_in_map_units_minus1 = bits.Ue();
        }
    }
    pps.num_ref_idx_l0_default_active_minus1 = bits.Ue();
    pps.num_ref_idx_l1_default_active_minus1 = bits.Ue();
    pps.weighted_pred_flag = bits.Bit();
    pps.weighted_bipred_idc = bits.Bits(2);
    pps.pic_init_qp_minus26 = bits.Ue();
    pps.pic_init_qs_minus26 = bits.Ue();
    pps.chroma_qp_index_offset = bits.Ue();
    pps.deblocking_filter_control_present_flag = bits.Bit();
    pps.constrained_intra_pred_flag = bits.Bit();
    pps.redundant_pic_cnt_present_flag = bits.Bit();
    pps.valid = !bits.End();
    return pps;
}

inline std::vector<unsigned char> PlainBase64(const std::string& text) {
    static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char c : text) {
        const std::size_t digit = digits.find(c);
        if (digit == std::string::npos)
            continue;
        group = group << 6 | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<unsigned char>(group >> bits));
        }
    }
    return bytes;
}

inline std::vector<unsigned char> PlainHex(const std::string& text) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::strtol(text.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

/// All headers of an MPEG-4 Visual stream, step by step along the syntax tables.
class PlainMpeg4 {
public:
    MP4VESParser::VisualObjectSequence sequence;
    MP4VESParser::VisualObject object;
    MP4VESParser::VideoObjectLayer layer;
    MP4VESParser::VideoObjectPlane plane;

    void Parse(const unsigned char* data, std::size_t size) {
        bits_ = PlainBits(data, size);
        sequence.valid = object.valid = layer.valid = plane.valid = false;
        const std::uint32_t start = bits_.Peek(32);
        if (start == 0x1B0)
            Sequence();
        else if (start == 0x1B5)
            Object();
        else if (start == 0x1B6)
            Plane();
    }

private:
    static int SignificantBits(std::uint32_t value) {
        int count = 0;
        for (; value != 0; value >>= 1)
            ++count;
        return count;
    }

    void SkipToPrefix() {
        while (bits_.Peek(24) != 1 && !bits_.End())
            bits_.Bits(8);
    }

    void SkipUserData() {
        while (bits_.Peek(32) == 0x1B2) {
            bits_.Bits(32);
            SkipToPrefix();
        }
    }

    void Sequence() {
        if (bits_.Left() < 32)
            return;
        sequence.present = true;
        sequence.visual_object_sequence_start_code = bits_.Bits(32);
        sequence.profile_and_level_indication = bits_.Bits(8);
        SkipUserData();
        sequence.valid = !bits_.End();
        Object();
    }

    void Object() {
        if (bits_.Left() < 32)
            return;
        object.present = true;
        object.visual_object_start_code = bits_.Bits(32);
        object.is_visual_object_identifier = bits_.Bit();
        if (object.is_visual_object_identifier != 0) {
            object.visual_object_verid = bits_.Bits(4);
            object.visual_object_priority = bits_.Bits(3);
        }
        object.visual_object_type = bits_.Bits(4);
        object.valid = !bits_.End();
        bits_.Align();
        if (object.visual_object_type == 1) {
            object.video_object_start_code = bits_.Bits(32);
            Layer();
        }
        if (bits_.Peek(24) != 1)
            bits_.Align();
    }

    void Layer() {
        if (bits_.Left() < 32 || bits_.Peek(32) < 0x120 || bits_.Peek(32) > 0x12F)
            return;
        layer.present = true;
        layer.video_object_layer_start_code = bits_.Bits(32);
        layer.random_accessible_vol = bits_.Bit();
        layer.video_object_type_indication = bits_.Bits(8);
        layer.is_object_layer_identifier = bits_.Bit();
        if (layer.is_object_layer_identifier != 0) {
            layer.video_object_layer_verid = bits_.Bits(4);
            layer.video_object_layer_priority = bits_.Bits(3);
        }
        layer.aspect_ratio_info = bits_.Bits(4);
        if (layer.aspect_ratio_info == 15) {
            layer.par_width = bits_.Bits(8);
            layer.par_height = bits_.Bits(8);
        }
        layer.vol_control_parameters = bits_.Bit();
        if (layer.vol_control_parameters != 0) {
            layer.chroma_format = bits_.Bits(2);
            layer.low_delay = bits_.Bit();
            layer.vbv_parameters = bits_.Bit();
            if (layer.vbv_parameters != 0) {
                layer.first_half_bit_rate = bits_.Bits(15);
                bits_.Bit();
                layer.latter_half_bit_rate = bits_.Bits(15);
                bits_.Bit();
                layer.first_half_vbv_buffer_size = bits_.Bits(15);
                bits_.Bit();
                layer.latter_half_vbv_buffer_size = bits_.Bits(3);
                layer.first_half_vbv_occupancy = bits_.Bits(11);
                bits_.Bit();
                layer.latter_half_vbv_occupancy = bits_.Bits(15);
                bits_.Bit();
            }
        }
        layer.video_object_layer_shape = bits_.Bits(2);
        if (layer.video_object_layer_shape == 3 && layer.video_object_layer_verid != 1)
            layer.video_object_layer_shape_extension = bits_.Bits(4);
        bits_.Bit();
        layer.vop_time_increment_resolution = bits_.Bits(16);
        bits_.Bit();
        layer.fixed_vop_rate = bits_.Bit();
        if (layer.fixed_vop_rate != 0)
            layer.fixed_vop_time_increment = bits_.Bits(SignificantBits(layer.vop_time_increment_resolution));
        if (layer.video_object_layer_shape != 2) {
            LayerTexture();
        } else {
            if (layer.video_object_layer_verid != 1) {
                layer.scalability = bits_.Bit();
                if (layer.scalability != 0) {
                    layer.ref_layer_id = bits_.Bits(4);
                    ShapeSamplingFactors();
                }
            }
            layer.resync_marker_disable = bits_.Bit();
        }
        layer.valid = !bits_.End();
        bits_.Align();
        SkipUserData();
        if (layer.sprite_enable == 1 && layer.low_latency_sprite_enable == 0)
            Plane();
        do {
            Plane();
            if (layer.video_object_layer_shape != 0 && bits_.Peek(32) == 0x1C3) {
                layer.stuffing_start_code = bits_.Bits(32);
                SkipToPrefix();
            }
        } while (bits_.Peek(32) == 0x1B3 || bits_.Peek(32) == 0x1B6);
    }

    void LayerTexture() {
        const std::uint32_t shape = layer.video_object_layer_shape;
        const bool verid1 = layer.video_object_layer_verid == 1;
        if (shape == 0) {
            bits_.Bit();
            layer.video_object_layer_width = bits_.Bits(13);
            bits_.Bit();
            layer.video_object_layer_height = bits_.Bits(13);
            bits_.Bit();
        }
        layer.interlaced = bits_.Bit();
        layer.obmc_disable = bits_.Bit();
        layer.sprite_enable = bits_.Bits(verid1 ? 1 : 2);
        if (layer.sprite_enable == 1 || layer.sprite_enable == 2) {
            if (layer.sprite_enable == 1) {
                layer.sprite_width = bits_.Bits(13);
                bits_.Bit();
                layer.sprite_height = bits_.Bits(13);
                bits_.Bit();
                layer.sprite_left_coordinate = bits_.Bits(13);
                bits_.Bit();
                layer.sprite_top_coordinate = bits_.Bits(13);
                bits_.Bit();
            }
            layer.no_of_sprite_warping_points = bits_.Bits(6);
            layer.sprite_warping_accuracy = bits_.Bits(2);
            layer.sprite_brightness_change = bits_.Bit();
            if (layer.sprite_enable == 1)
                layer.low_latency_sprite_enable = bits_.Bit();
        }
        if (!verid1 && shape != 0)
            layer.sadct_disable = bits_.Bit();
        layer.not_8_bit = bits_.Bit();
        if (layer.not_8_bit != 0) {
            layer.quant_precision = bits_.Bits(4);
            layer.bits_per_pixel = bits_.Bits(4);
        }
        if (shape == 3) {
            layer.no_gray_quant_update = bits_.Bit();
            layer.composition_method = bits_.Bit();
            layer.linear_composition = bits_.Bit();
        }
        layer.quant_type = bits_.Bit();
        if (layer.quant_type != 0) {
            layer.load_intra_quant_mat = bits_.Bit();
            layer.load_nonintra_quant_mat = bits_.Bit();
        }
        if (!verid1)
            layer.quarter_sample = bits_.Bit();
        layer.complexity_estimation_disable = bits_.Bit();
        layer.resync_marker_disable = bits_.Bit();
        layer.data_partitioned = bits_.Bit();
        if (layer.data_partitioned != 0)
            layer.reversible_vlc = bits_.Bit();
        if (!verid1) {
            layer.newpred_enable = bits_.Bit();
            if (layer.newpred_enable != 0) {
                layer.requested_upstream_message_type = bits_.Bits(2);
                layer.newpred_segment_type = bits_.Bit();
            }
            layer.reduced_resolution_vop_enable = bits_.Bit();
        }
        layer.scalability = bits_.Bit();
        if (layer.scalability == 0)
            return;
        layer.hierarchy_type = bits_.Bit();
        layer.ref_layer_id = bits_.Bits(4);
        layer.ref_layer_sampling_direc = bits_.Bit();
        layer.hor_sampling_factor_n = bits_.Bits(5);
        layer.hor_sampling_factor_m = bits_.Bits(5);
        layer.vert_sampling_factor_n = bits_.Bits(5);
        layer.vert_sampling_factor_m = bits_.Bits(5);
        layer.enhancement_type = bits_.Bit();
        if (shape == 1 && layer.hierarchy_type == 0) {
            layer.use_ref_shape = bits_.Bit();
            layer.use_ref_texture = bits_.Bit();
            ShapeSamplingFactors();
        }
    }

    void ShapeSamplingFactors() {
        layer.shape_hor_sampling_factor_n = bits_.Bits(5);
        layer.shape_hor_sampling_factor_m = bits_.Bits(5);
        layer.shape_vert_sampling_factor_n = bits_.Bits(5);
        layer.shape_vert_sampling_factor_m = bits_.Bits(5);
    }

    void Plane() {
        if (bits_.Left() < 32)
            return;
        plane.present = true;
        plane.vop_start_code = bits_.Bits(32);
        plane.vop_coding_type = bits_.Bits(2);
        do {
            plane.modulo_time_base = bits_.Bit();
        } while (plane.modulo_time_base != 0 && !bits_.End());
        bits_.Bit();
        const int width = SignificantBits(layer.vop_time_increment_resolution);
        plane.vop_time_increment = bits_.Bits(width);
        bits_.Bit();
        plane.vop_coded = bits_.Bit();
        if (plane.vop_coded == 0) {
            bits_.Align();
            return;
        }
        const std::uint32_t shape = layer.video_object_layer_shape;
        const std::uint32_t type = plane.vop_coding_type;
        if (layer.newpred_enable != 0) {
            const int idWidth = width + 3 < 15 ? width + 3 : 15;
            plane.vop_id = bits_.Bits(idWidth);
            plane.vop_id_for_prediction_indication = bits_.Bit();
            if (plane.vop_id_for_prediction_indication != 0) {
                plane.vop_id_for_prediction = bits_.Bits(idWidth);
                bits_.Bit();
            }
        }
        if (shape != 2 && (type == 1 || (type == 3 && layer.sprite_enable == 2)))
            plane.vop_rounding_type = bits_.Bit();
        if (layer.reduced_resolution_vop_enable != 0 && shape == 0 && type != 2 && type != 3)
            plane.vop_reduced_resolution = bits_.Bit();
        if (shape != 0) {
            if (layer.sprite_enable != 1 || type != 0) {
                plane.vop_width = bits_.Bits(13);
                bits_.Bit();
                plane.vop_height = bits_.Bits(13);
                bits_.Bit();
                plane.vop_horizontal_mc_spatial_ref = bits_.Bits(13);
                bits_.Bit();
                plane.vop_vertical_mc_spatial_ref = bits_.Bits(13);
                bits_.Bit();
            }
            if (shape != 2 && layer.scalability != 0 && layer.enhancement_type != 0)
                plane.background_composition = bits_.Bit();
            plane.change_conv_ratio_disable = bits_.Bit();
            plane.vop_constant_alpha = bits_.Bit();
            if (plane.vop_constant_alpha != 0)
                plane.vop_constant_alpha_value = bits_.Bits(8);
        }
        plane.valid = !bits_.End();
    }

    PlainBits bits_{nullptr, 0};
};

}  // namespace camclock::bench
