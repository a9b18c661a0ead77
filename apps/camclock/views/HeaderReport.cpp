#include "apps/camclock/views/HeaderReport.h"

#include "apps/camclock/views/HexText.h"
#include "receiver/PictureHeaders.h"

#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>
#include <camclock/receiver/Format.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

namespace camclock::app {
namespace {

using nlohmann::ordered_json;

ordered_json FieldsOf(const SPSset& sps) {
    return {
        {"profile_idc", sps.profile_idc},
        {"constraint_set0_flag", sps.constraint_set0_flag},
        {"constraint_set1_flag", sps.constraint_set1_flag},
        {"constraint_set2_flag", sps.constraint_set2_flag},
        {"constraint_set3_flag", sps.constraint_set3_flag},
        {"constraint_set4_flag", sps.constraint_set4_flag},
        {"constraint_set5_flag", sps.constraint_set5_flag},
        {"reserved_zero_2bits", sps.reserved_zero_2bits},
        {"level_idc", sps.level_idc},
        {"seq_parameter_set_id", sps.seq_parameter_set_id},
        {"chroma_format_idc", sps.chroma_format_idc},
        {"separate_colour_plane_flag", sps.separate_colour_plane_flag},
        {"bit_depth_luma_minus8", sps.bit_depth_luma_minus8},
        {"bit_depth_chroma_minus8", sps.bit_depth_chroma_minus8},
        {"qpprime_y_zero_transform_bypass_flag", sps.qpprime_y_zero_transform_bypass_flag},
        {"seq_scaling_matrix_present_flag", sps.seq_scaling_matrix_present_flag},
        {"seq_scaling_list_present_flag", sps.seq_scaling_list_present_flag},
        {"log2_max_frame_num_minus4", sps.log2_max_frame_num_minus4},
        {"pic_order_cnt_type", sps.pic_order_cnt_type},
        {"log2_max_pic_order_cnt_lsb_minus4", sps.log2_max_pic_order_cnt_lsb_minus4},
        {"delta_pic_order_always_zero_flag", sps.delta_pic_order_always_zero_flag},
        {"offset_for_non_ref_pic", sps.offset_for_non_ref_pic},
        {"offset_for_top_to_bottom_field", sps.offset_for_top_to_bottom_field},
        {"num_ref_frames_in_pic_order_cnt_cycle", sps.num_ref_frames_in_pic_order_cnt_cycle},
        {"offset_for_ref_frame", sps.offset_for_ref_frame},
        {"max_num_ref_frames", sps.max_num_ref_frames},
        {"gaps_in_frame_num_value_allowed_flag", sps.gaps_in_frame_num_value_allowed_flag},
        {"pic_width_in_mbs_minus1", sps.pic_width_in_mbs_minus1},
        {"pic_height_in_map_units_minus1", sps.pic_height_in_map_units_minus1},
        {"frame_mbs_only_flag", sps.frame_mbs_only_flag},
        {"mb_adaptive_frame_field_flag", sps.mb_adaptive_frame_field_flag},
        {"direct_8x8_inference_flag", sps.direct_8x8_inference_flag},
        {"frame_cropping_flag", sps.frame_cropping_flag},
        {"frame_crop_left_offset", sps.frame_crop_left_offset},
        {"frame_crop_right_offset", sps.frame_crop_right_offset},
        {"frame_crop_top_offset", sps.frame_crop_top_offset},
        {"frame_crop_bottom_offset", sps.frame_crop_bottom_offset},
        {"vui_parameters_present_flag", sps.vui_parameters_present_flag},
    };
}

ordered_json FieldsOf(const PPSset& pps) {
    return {
        {"pic_parameter_set_id", pps.pic_parameter_set_id},
        {"seq_parameter_set_id", pps.seq_parameter_set_id},
        {"entropy_coding_mode_flag", pps.entropy_coding_mode_flag},
        {"bottom_field_pic_order_in_frame_present_flag", pps.bottom_field_pic_order_in_frame_present_flag},
        {"num_slice_groups_minus1", pps.num_slice_groups_minus1},
        {"slice_group_map_type", pps.slice_group_map_type},
        {"run_length_minus1", pps.run_length_minus1},
        {"top_left", pps.top_left},
        {"bottom_right", pps.bottom_right},
        {"slice_group_change_direction_flag", pps.slice_group_change_direction_flag},
        {"slice_group_change_rate_minus1", pps.slice_group_change_rate_minus1},
        {"pic_size_in_map_units_minus1", pps.pic_size_in_map_units_minus1},
        {"num_ref_idx_l0_default_active_minus1", pps.num_ref_idx_l0_default_active_minus1},
        {"num_ref_idx_l1_default_active_minus1", pps.num_ref_idx_l1_default_active_minus1},
        {"weighted_pred_flag", pps.weighted_pred_flag},
        {"weighted_bipred_idc", pps.weighted_bipred_idc},
        {"pic_init_qp_minus26", pps.pic_init_qp_minus26},
        {"pic_init_qs_minus26", pps.pic_init_qs_minus26},
        {"chroma_qp_index_offset", pps.chroma_qp_index_offset},
        {"deblocking_filter_control_present_flag", pps.deblocking_filter_control_present_flag},
        {"constrained_intra_pred_flag", pps.constrained_intra_pred_flag},
        {"redundant_pic_cnt_present_flag", pps.redundant_pic_cnt_present_flag},
    };
}

ordered_json FieldsOf(const MP4VESParser::VisualObjectSequence& sequence) {
    return {
        {"visual_object_sequence_start_code", sequence.visual_object_sequence_start_code},
        {"profile_and_level_indication", sequence.profile_and_level_indication},
    };
}

ordered_json FieldsOf(const MP4VESParser::VisualObject& object) {
    return {
        {"visual_object_start_code", object.visual_object_start_code},
        {"is_visual_object_identifier", object.is_visual_object_identifier},
        {"visual_object_verid", object.visual_object_verid},
        {"visual_object_priority", object.visual_object_priority},
        {"visual_object_type", object.visual_object_type},
        {"video_object_start_code", object.video_object_start_code},
    };
}

ordered_json FieldsOf(const MP4VESParser::VideoObjectLayer& layer) {
    return {
        {"video_object_layer_start_code", layer.video_object_layer_start_code},
        {"random_accessible_vol", layer.random_accessible_vol},
        {"video_object_type_indication", layer.video_object_type_indication},
        {"is_object_layer_identifier", layer.is_object_layer_identifier},
        {"video_object_layer_verid", layer.video_object_layer_verid},
        {"video_object_layer_priority", layer.video_object_layer_priority},
        {"aspect_ratio_info", layer.aspect_ratio_info},
        {"par_width", layer.par_width},
        {"par_height", layer.par_height},
        {"vol_control_parameters", layer.vol_control_parameters},
        {"chroma_format", layer.chroma_format},
        {"low_delay", layer.low_delay},
        {"vbv_parameters", layer.vbv_parameters},
        {"first_half_bit_rate", layer.first_half_bit_rate},
        {"latter_half_bit_rate", layer.latter_half_bit_rate},
        {"first_half_vbv_buffer_size", layer.first_half_vbv_buffer_size},
        {"latter_half_vbv_buffer_size", layer.latter_half_vbv_buffer_size},
        {"first_half_vbv_occupancy", layer.first_half_vbv_occupancy},
        {"latter_half_vbv_occupancy", layer.latter_half_vbv_occupancy},
        {"video_object_layer_shape", layer.video_object_layer_shape},
        {"video_object_layer_shape_extension", layer.video_object_layer_shape_extension},
        {"vop_time_increment_resolution", layer.vop_time_increment_resolution},
        {"fixed_vop_rate", layer.fixed_vop_rate},
        {"fixed_vop_time_increment", layer.fixed_vop_time_increment},
        {"video_object_layer_width", layer.video_object_layer_width},
        {"video_object_layer_height", layer.video_object_layer_height},
        {"obmc_disable", layer.obmc_disable},
        {"sprite_width", layer.sprite_width},
        {"sprite_height", layer.sprite_height},
        {"sprite_left_coordinate", layer.sprite_left_coordinate},
        {"sprite_top_coordinate", layer.sprite_top_coordinate},
        {"no_of_sprite_warping_points", layer.no_of_sprite_warping_points},
        {"sprite_warping_accuracy", layer.sprite_warping_accuracy},
        {"sprite_brightness_change", layer.sprite_brightness_change},
        {"low_latency_sprite_enable", layer.low_latency_sprite_enable},
        {"sadct_disable", layer.sadct_disable},
        {"not_8_bit", layer.not_8_bit},
        {"quant_precision", layer.quant_precision},
        {"bits_per_pixel", layer.bits_per_pixel},
        {"no_gray_quant_update", layer.no_gray_quant_update},
        {"composition_method", layer.composition_method},
        {"linear_composition", layer.linear_composition},
        {"quant_type", layer.quant_type},
        {"load_intra_quant_mat", layer.load_intra_quant_mat},
        {"load_nonintra_quant_mat", layer.load_nonintra_quant_mat},
        {"load_intra_quant_mat_grayscale", layer.load_intra_quant_mat_grayscale},
        {"load_nonintra_quant_mat_grayscale", layer.load_nonintra_quant_mat_grayscale},
        {"quarter_sample", layer.quarter_sample},
        {"resync_marker_disable", layer.resync_marker_disable},
        {"data_partitioned", layer.data_partitioned},
        {"reversible_vlc", layer.reversible_vlc},
        {"requested_upstream_message_type", layer.requested_upstream_message_type},
        {"newpred_segment_type", layer.newpred_segment_type},
        {"hierarchy_type", layer.hierarchy_type},
        {"ref_layer_id", layer.ref_layer_id},
        {"ref_layer_sampling_direc", layer.ref_layer_sampling_direc},
        {"hor_sampling_factor_n", layer.hor_sampling_factor_n},
        {"hor_sampling_factor_m", layer.hor_sampling_factor_m},
        {"vert_sampling_factor_n", layer.vert_sampling_factor_n},
        {"vert_sampling_factor_m", layer.vert_sampling_factor_m},
        {"use_ref_shape", layer.use_ref_shape},
        {"use_ref_texture", layer.use_ref_texture},
        {"shape_hor_sampling_factor_n", layer.shape_hor_sampling_factor_n},
        {"shape_hor_sampling_factor_m", layer.shape_hor_sampling_factor_m},
        {"shape_vert_sampling_factor_n", layer.shape_vert_sampling_factor_n},
        {"shape_vert_sampling_factor_m", layer.shape_vert_sampling_factor_m},
        {"stuffing_start_code", layer.stuffing_start_code},
        {"complexity_estimation_disable", layer.complexity_estimation_disable},
        {"interlaced", layer.interlaced},
        {"sprite_enable", layer.sprite_enable},
        {"newpred_enable", layer.newpred_enable},
        {"reduced_resolution_vop_enable", layer.reduced_resolution_vop_enable},
        {"scalability", layer.scalability},
        {"enhancement_type", layer.enhancement_type},
    };
}

ordered_json FieldsOf(const MP4VESParser::VideoObjectPlane& plane) {
    return {
        {"vop_start_code", plane.vop_start_code},
        {"vop_coding_type", plane.vop_coding_type},
        {"modulo_time_base", plane.modulo_time_base},
        {"vop_time_increment", plane.vop_time_increment},
        {"vop_coded", plane.vop_coded},
        {"vop_id", plane.vop_id},
        {"vop_id_for_prediction_indication", plane.vop_id_for_prediction_indication},
        {"vop_id_for_prediction", plane.vop_id_for_prediction},
        {"vop_rounding_type", plane.vop_rounding_type},
        {"vop_reduced_resolution", plane.vop_reduced_resolution},
        {"vop_width", plane.vop_width},
        {"vop_height", plane.vop_height},
        {"vop_horizontal_mc_spatial_ref", plane.vop_horizontal_mc_spatial_ref},
        {"vop_vertical_mc_spatial_ref", plane.vop_vertical_mc_spatial_ref},
        {"background_composition", plane.background_composition},
        {"change_conv_ratio_disable", plane.change_conv_ratio_disable},
        {"vop_constant_alpha", plane.vop_constant_alpha},
        {"vop_constant_alpha_value", plane.vop_constant_alpha_value},
    };
}

constexpr const char* kCutShort = "the data end before the header does";
constexpr const char* kMissing = "not in the data";

ordered_json Picture(unsigned int width, unsigned int height, MediaPacket::PixelFormat format) {
    return {{"width", width}, {"height", height}, {"pixel_format", receiver::PixelFormatText(format)}};
}

HeaderReport SpsReport(ParameterSetParser& parser, const std::string& source) {
    HeaderReport report{"SPS", "H.264 sequence parameter set", source, parser.GetSPS().valid,
                        "",    FieldsOf(parser.GetSPS()),      {}};
    if (report.valid) {
        unsigned int width = 0;
        unsigned int height = 0;
        parser.GetImageSize(width, height);
        report.picture = Picture(width, height, parser.GetPixelFormat());
    } else {
        report.note = kCutShort;
    }
    return report;
}

HeaderReport PpsReport(const ParameterSetParser& parser, const std::string& source) {
    const PPSset& pps = parser.GetPPS();
    return {"PPS",     "H.264 picture parameter set", source,
            pps.valid, pps.valid ? "" : kCutShort,    FieldsOf(pps),
            {}};
}

/// nal_unit_type (ITU-T H.264, table 7-1): the parser does not look at it, but the user may have mixed them
/// up.
void NoteType(const std::vector<unsigned char>& nal, unsigned int expected, HeaderReport& report) {
    if (nal.empty())
        return;
    const unsigned int type = nal.front() & 0x1FU;
    if (type == expected)
        return;
    if (!report.note.empty())
        report.note += "; ";
    report.note += fmt::format("its NAL header says type {}, not {}", type, expected);
}

template <class Header>
HeaderReport Mpeg4Report(const char* name, const char* title, const Header& header,
                         const std::string& source) {
    HeaderReport report{name, title, source, header.valid, "", {}, {}};
    report.fields = header.present ? FieldsOf(header) : ordered_json::object();
    if (!header.present)
        report.note = kMissing;
    else if (!header.valid)
        report.note = kCutShort;
    return report;
}

/// Start codes are known by their hexadecimal form.
std::string ValueText(const std::string& name, const ordered_json& value) {
    constexpr std::string_view kStartCode = "start_code";
    const bool isStartCode =
        name.size() >= kStartCode.size() &&
        name.compare(name.size() - kStartCode.size(), kStartCode.size(), kStartCode) == 0;
    return isStartCode ? fmt::format("0x{:08X}", value.get<std::uint32_t>()) : value.dump();
}

}  // namespace

std::vector<HeaderReport> InspectSprop(const std::string& sprop, const std::string& source) {
    ParameterSetParser parser;
    std::string text = sprop;
    parser.SetSpropsString(text);
    std::vector<HeaderReport> reports{SpsReport(parser, source), PpsReport(parser, source)};
    // A record that was never parsed is all zeros; one that was cut short ends in a flag of 32 ones.
    const auto markMissing = [](HeaderReport& report, const ordered_json& unparsed) {
        if (report.valid || report.fields != unparsed)
            return;
        report.note = kMissing;
        report.fields = ordered_json::object();
    };
    markMissing(reports[0], FieldsOf(SPSset{}));
    markMissing(reports[1], FieldsOf(PPSset{}));
    return reports;
}

HeaderReport InspectSps(std::vector<unsigned char> nal, const std::string& source) {
    ParameterSetParser parser;
    parser.SetSPSArray(nal.data(), static_cast<unsigned int>(nal.size()));
    HeaderReport report = SpsReport(parser, source);
    NoteType(nal, 7, report);
    return report;
}

HeaderReport InspectPps(std::vector<unsigned char> nal, const std::string& source) {
    ParameterSetParser parser;
    parser.SetPPSArray(nal.data(), static_cast<unsigned int>(nal.size()));
    HeaderReport report = PpsReport(parser, source);
    NoteType(nal, 8, report);
    return report;
}

std::vector<HeaderReport> InspectMpeg4Config(const std::string& hex, const std::string& source) {
    MP4VESParser parser;
    std::string text = hex;
    parser.TryParseString(text);

    std::vector<HeaderReport> reports;
    if (parser.GetVisualObjectSequence().present)
        reports.push_back(Mpeg4Report("visual_object_sequence", "MPEG-4 visual object sequence",
                                      parser.GetVisualObjectSequence(), source));
    if (parser.GetVisualObject().present)
        reports.push_back(
            Mpeg4Report("visual_object", "MPEG-4 visual object", parser.GetVisualObject(), source));
    reports.push_back(
        Mpeg4Report("video_object_layer", "MPEG-4 video object layer", parser.GetVideoObjectLayer(), source));
    unsigned int width = 0;
    unsigned int height = 0;
    bool valid = false;
    parser.GetImageSize(width, height, valid);
    if (valid)
        reports.back().picture = Picture(width, height, parser.GetPixelFormat(valid));
    if (parser.GetVideoObjectPlane().present)
        reports.push_back(Mpeg4Report("video_object_plane", "MPEG-4 video object plane",
                                      parser.GetVideoObjectPlane(), source));
    return reports;
}

std::vector<HeaderReport> InspectSdp(const std::string& text, const std::string& source) {
    std::vector<HeaderReport> reports;
    const auto add = [&reports](std::vector<HeaderReport> more) {
        std::move(more.begin(), more.end(), std::back_inserter(reports));
    };
    int number = 0;
    for (const receiver::Format& stream : receiver::Format::FromSdp(text)) {
        if (stream.media != "video")
            continue;
        const std::string where = fmt::format("{}, video stream {}", source, ++number);
        const bool isH264 = stream.codec == receiver::Codec::kH264;
        if (!isH264 && stream.codec != receiver::Codec::kMpeg4Visual) {
            constexpr int kFirstDynamicType = 96;  // RFC 3551, 3
            add({{"stream",
                  "video stream",
                  where,
                  false,
                  fmt::format("neither H.264 nor MPEG-4 Visual: {}",
                              stream.payloadType < kFirstDynamicType || stream.encoding.empty()
                                  ? "a static payload type"
                                  : stream.encoding),
                  ordered_json::object(),
                  {}}});
        } else if (stream.headers.empty()) {
            add({{"stream",
                  "video stream",
                  where,
                  false,
                  isH264 ? "no sprop-parameter-sets: they may come in band"
                         : "no config: it may come in band",
                  ordered_json::object(),
                  {}}});
        } else if (isH264) {
            add(InspectSprop(stream.headers, where));
        } else if (const HexText config = HexText::Parse(stream.headers); !config.error.empty()) {
            add({{"stream",
                  "video stream",
                  where,
                  false,
                  "config is " + config.error,
                  ordered_json::object(),
                  {}}});
        } else {
            add(InspectMpeg4Config(stream.headers, where));
        }
    }
    if (reports.empty())
        add({{"stream", "SDP", source, false, "no video stream", ordered_json::object(), {}}});
    return reports;
}

bool AllValid(const std::vector<HeaderReport>& reports) {
    return std::all_of(reports.begin(), reports.end(),
                       [](const HeaderReport& report) { return report.valid; });
}

std::vector<std::string> HeaderLines(const std::vector<HeaderReport>& reports) {
    std::size_t widest = 0;
    for (const HeaderReport& report : reports)
        for (const auto& field : report.fields.items())
            widest = std::max(widest, field.key().size());

    std::vector<std::string> lines;
    for (const HeaderReport& report : reports) {
        if (!lines.empty())
            lines.emplace_back();
        lines.push_back(fmt::format("{} ({}): {}{}{}", report.title, report.source,
                                    report.valid ? "valid" : "NOT VALID", report.note.empty() ? "" : ": ",
                                    report.note));
        for (const auto& field : report.fields.items())
            lines.push_back(
                fmt::format("  {:<{}}  {}", field.key(), widest, ValueText(field.key(), field.value())));
        if (!report.picture.is_null())
            lines.push_back(fmt::format("  => {} x {}, {}", report.picture["width"].get<unsigned int>(),
                                        report.picture["height"].get<unsigned int>(),
                                        report.picture["pixel_format"].get<std::string>()));
    }
    return lines;
}

std::string HeaderJson(const std::vector<HeaderReport>& reports) {
    ordered_json headers = ordered_json::array();
    for (const HeaderReport& report : reports) {
        ordered_json header{{"header", report.header}, {"source", report.source}, {"valid", report.valid}};
        if (!report.note.empty())
            header["note"] = report.note;
        header["fields"] = report.fields;
        if (!report.picture.is_null())
            header["picture"] = report.picture;
        headers.push_back(std::move(header));
    }
    // What an SDP says may be in any encoding: what is no UTF-8 is replaced.
    return ordered_json{{"valid", AllValid(reports)}, {"headers", std::move(headers)}}.dump(
        2, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace camclock::app
