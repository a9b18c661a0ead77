#include <camclock/ParameterSetParser.h>

#include "support/Base64.h"
#include "support/H264Headers.h"
#include "support/ParserTestAccess.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace camclock {
namespace {

using testing::BitWriter;
using testing::FullHdSps;
using testing::PpsFields;
using testing::SpsFields;
using Access = ParserTestAccess;
using Bytes = std::vector<unsigned char>;
using Size = std::pair<unsigned int, unsigned int>;

constexpr unsigned int kAllOnes = 0xFFFFFFFF;

static_assert(std::is_same_v<decltype(SPSset::offset_for_non_ref_pic), std::int32_t>);

SPSset ParseSps(Bytes bytes) {
    SPSset out;
    ParameterSetParser().ParseSPS(bytes.data(), static_cast<unsigned int>(bytes.size()), out);
    return out;
}

SPSset ParseSps(const SpsFields& fields) {
    return ParseSps(fields.Bytes());
}

PPSset ParsePps(Bytes bytes) {
    PPSset out;
    ParameterSetParser().ParsePPS(bytes.data(), static_cast<unsigned int>(bytes.size()), out);
    return out;
}

PPSset ParsePps(const PpsFields& fields) {
    return ParsePps(fields.Bytes());
}

ParameterSetParser WithSps(const SpsFields& fields) {
    ParameterSetParser parser;
    Bytes bytes = fields.Bytes();
    parser.SetSPSArray(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return parser;
}

Size SizeOf(const SpsFields& fields) {
    unsigned int width = 1;
    unsigned int height = 1;
    WithSps(fields).GetImageSize(width, height);
    return {width, height};
}

TEST(ParameterSetParser, KnowsNothingAtFirst) {
    ParameterSetParser parser;
    EXPECT_FALSE(parser.GetSPS().valid);
    EXPECT_FALSE(parser.GetPPS().valid);
    unsigned int width = 7;
    unsigned int height = 9;
    parser.GetImageSize(width, height);
    EXPECT_EQ(width, 7U);
    EXPECT_EQ(height, 9U);
    EXPECT_EQ(parser.GetPixelFormat(), MediaPacket::kPixelUnknown);
}

TEST(ParameterSetParser, BaselineQvga) {
    const SpsFields baseline;
    EXPECT_EQ(SizeOf(baseline), Size(320, 240));
    EXPECT_EQ(WithSps(baseline).GetPixelFormat(), MediaPacket::kPixelMonochrome);
}

TEST(ParameterSetParser, FullHdOfTheHighProfile) {
    EXPECT_EQ(SizeOf(FullHdSps()), Size(1920, 1080));
    EXPECT_EQ(WithSps(FullHdSps()).GetPixelFormat(), MediaPacket::kPixel420);
}

TEST(ParameterSetParser, CropUnitIsTwoForFieldCodedStreams) {
    SpsFields fields = FullHdSps();
    fields.frame_mbs_only_flag = false;
    fields.pic_height_in_map_units_minus1 = 33;
    fields.crop[3] = 2;
    EXPECT_EQ(SizeOf(fields), Size(1920, 1084));
}

TEST(ParameterSetParser, CropUnitIsTwoWhateverTheChromaFormat) {
    for (const std::uint32_t format : {0U, 1U, 2U, 3U}) {
        SpsFields fields = FullHdSps();
        fields.profile_idc = 122;
        fields.chroma_format_idc = format;
        fields.crop[0] = 1;
        fields.crop[1] = 2;
        fields.crop[2] = 3;
        fields.crop[3] = 4;
        EXPECT_EQ(SizeOf(fields), Size(1920 - 2 * 3, 1088 - 2 * 7)) << format;
    }
}

TEST(ParameterSetParser, SizesWrapAt32Bits) {
    SpsFields fields = FullHdSps();
    fields.pic_width_in_mbs_minus1 = 0xFFFFFFFE;  // + 1 times 16 is 2^36 - 16
    fields.crop[1] = 3;
    fields.pic_height_in_map_units_minus1 = 0;
    fields.crop[3] = 20;
    EXPECT_EQ(SizeOf(fields), Size(0xFFFFFFF0U - 6U, 16U - 40U));
}

TEST(ParameterSetParser, BaselineReportsMonochrome) {
    for (const std::uint32_t profile : {66U, 77U, 88U}) {
        SpsFields fields;
        fields.profile_idc = profile;
        EXPECT_EQ(ParseSps(fields).chroma_format_idc, 0U);
        EXPECT_EQ(WithSps(fields).GetPixelFormat(), MediaPacket::kPixelMonochrome) << profile;
    }
}

TEST(ParameterSetParser, PixelFormatFollowsTheChromaFormat) {
    const std::pair<std::uint32_t, MediaPacket::PixelFormat> cases[] = {
        {0, MediaPacket::kPixelMonochrome}, {1, MediaPacket::kPixel420},
        {2, MediaPacket::kPixel422},        {3, MediaPacket::kPixel444},
        {4, MediaPacket::kPixelUnknown},    {1'000'000, MediaPacket::kPixelUnknown},
    };
    for (const auto& [format, expected] : cases) {
        for (const std::uint32_t profile : {100U, 110U, 122U, 144U}) {
            SpsFields fields = FullHdSps();
            fields.profile_idc = profile;
            fields.chroma_format_idc = format;
            EXPECT_EQ(WithSps(fields).GetPixelFormat(), expected) << profile << ' ' << format;
        }
    }
}

TEST(ParameterSetParser, OnlyFourProfilesCarryTheChromaFormat) {
    for (std::uint32_t profile = 0; profile < 256; ++profile) {
        const bool known = profile == 100 || profile == 110 || profile == 122 || profile == 144;
        SpsFields fields;
        fields.profile_idc = profile;
        fields.carriesChroma = known;
        fields.chroma_format_idc = 2;
        const SPSset sps = ParseSps(fields);
        EXPECT_TRUE(sps.valid) << profile;
        EXPECT_EQ(sps.chroma_format_idc, known ? 2U : 0U) << profile;
        EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19U) << profile;
    }
    // Of the standard's longer list, such a stream is misread.
    for (const std::uint32_t profile : {244U, 44U, 83U, 86U, 118U, 128U}) {
        SpsFields fields = FullHdSps();
        fields.profile_idc = profile;
        EXPECT_NE(ParseSps(fields).pic_width_in_mbs_minus1, 119U) << profile;
    }
}

TEST(ParameterSetParser, EveryFieldOfTheSequenceParameterSet) {
    SpsFields fields;
    fields.profile_idc = 122;
    fields.carriesChroma = true;
    fields.constraintFlags = 0b101010;
    fields.level_idc = 51;
    fields.seq_parameter_set_id = 31;
    fields.chroma_format_idc = 3;
    fields.separate_colour_plane_flag = true;
    fields.bit_depth_luma_minus8 = 2;
    fields.bit_depth_chroma_minus8 = 6;
    fields.qpprime_y_zero_transform_bypass_flag = true;
    fields.log2_max_frame_num_minus4 = 12;
    fields.pic_order_cnt_type = 1;
    fields.delta_pic_order_always_zero_flag = true;
    fields.offset_for_non_ref_pic = -5;
    fields.offset_for_top_to_bottom_field = 6;
    fields.offset_for_ref_frame = {0, -1, 2, -2147483647, 1073741823};
    fields.max_num_ref_frames = 16;
    fields.gaps_in_frame_num_value_allowed_flag = true;
    fields.pic_width_in_mbs_minus1 = 255;
    fields.pic_height_in_map_units_minus1 = 63;
    fields.frame_mbs_only_flag = false;
    fields.mb_adaptive_frame_field_flag = true;
    fields.direct_8x8_inference_flag = true;
    fields.frame_cropping_flag = true;
    fields.crop[0] = 1;
    fields.crop[1] = 2;
    fields.crop[2] = 3;
    fields.crop[3] = 4;
    fields.vui_parameters_present_flag = true;

    const SPSset sps = ParseSps(fields);
    EXPECT_TRUE(sps.valid);
    EXPECT_EQ(sps.profile_idc, 122U);
    EXPECT_EQ(sps.constraint_set0_flag, 1U);
    EXPECT_EQ(sps.constraint_set1_flag, 0U);
    EXPECT_EQ(sps.constraint_set2_flag, 1U);
    EXPECT_EQ(sps.constraint_set3_flag, 0U);
    EXPECT_EQ(sps.constraint_set4_flag, 1U);
    EXPECT_EQ(sps.constraint_set5_flag, 0U);
    EXPECT_EQ(sps.reserved_zero_2bits, 0U);
    EXPECT_EQ(sps.level_idc, 51U);
    EXPECT_EQ(sps.seq_parameter_set_id, 31U);
    EXPECT_EQ(sps.chroma_format_idc, 3U);
    EXPECT_EQ(sps.separate_colour_plane_flag, 1U);
    EXPECT_EQ(sps.bit_depth_luma_minus8, 2U);
    EXPECT_EQ(sps.bit_depth_chroma_minus8, 6U);
    EXPECT_EQ(sps.qpprime_y_zero_transform_bypass_flag, 1U);
    EXPECT_EQ(sps.seq_scaling_matrix_present_flag, 0U);
    EXPECT_TRUE(sps.seq_scaling_list_present_flag.empty());
    EXPECT_EQ(sps.log2_max_frame_num_minus4, 12U);
    EXPECT_EQ(sps.pic_order_cnt_type, 1U);
    EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb_minus4, 0U);
    EXPECT_EQ(sps.delta_pic_order_always_zero_flag, 1U);
    EXPECT_EQ(sps.offset_for_non_ref_pic, -5);
    EXPECT_EQ(sps.offset_for_top_to_bottom_field, 6);
    EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, 5U);
    EXPECT_EQ(sps.offset_for_ref_frame, (std::vector<std::int32_t>{0, -1, 2, -2147483647, 1073741823}));
    EXPECT_EQ(sps.max_num_ref_frames, 16U);
    EXPECT_EQ(sps.gaps_in_frame_num_value_allowed_flag, 1U);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 255U);
    EXPECT_EQ(sps.pic_height_in_map_units_minus1, 63U);
    EXPECT_EQ(sps.frame_mbs_only_flag, 0U);
    EXPECT_EQ(sps.mb_adaptive_frame_field_flag, 1U);
    EXPECT_EQ(sps.direct_8x8_inference_flag, 1U);
    EXPECT_EQ(sps.frame_cropping_flag, 1U);
    EXPECT_EQ(sps.frame_crop_left_offset, 1U);
    EXPECT_EQ(sps.frame_crop_right_offset, 2U);
    EXPECT_EQ(sps.frame_crop_top_offset, 3U);
    EXPECT_EQ(sps.frame_crop_bottom_offset, 4U);
    EXPECT_EQ(sps.vui_parameters_present_flag, 1U);
}

TEST(ParameterSetParser, OrderCountTypesReadTheirOwnFields) {
    for (const std::uint32_t type : {0U, 1U, 2U, 3U, 77U}) {
        SpsFields fields;
        fields.pic_order_cnt_type = type;
        fields.log2_max_pic_order_cnt_lsb_minus4 = 9;
        fields.offset_for_non_ref_pic = 3;
        const SPSset sps = ParseSps(fields);
        EXPECT_TRUE(sps.valid) << type;
        EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb_minus4, type == 0 ? 9U : 0U) << type;
        EXPECT_EQ(sps.offset_for_non_ref_pic, type == 1 ? 3 : 0) << type;
        EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19U) << type;
    }
}

TEST(ParameterSetParser, ScalingListsNotPresentAreOneFlagEach) {
    for (const std::uint32_t format : {1U, 3U}) {
        SpsFields fields = FullHdSps();
        fields.chroma_format_idc = format;
        fields.seq_scaling_matrix_present_flag = true;
        fields.scalingLists.resize(format == 3 ? 12 : 8);
        const SPSset sps = ParseSps(fields);
        EXPECT_EQ(sps.seq_scaling_list_present_flag, std::vector<std::uint32_t>(format == 3 ? 12 : 8, 0U));
        EXPECT_TRUE(sps.valid);
        EXPECT_EQ(sps.pic_width_in_mbs_minus1, 119U);
    }
}

TEST(ParameterSetParser, ScalingListsAreSkippedByAFixedRule) {
    SpsFields fields = FullHdSps();
    fields.seq_scaling_matrix_present_flag = true;
    fields.scalingLists.resize(8);
    fields.scalingLists[0] = std::vector<std::int32_t>(16, 1);
    fields.scalingLists[1] = {-8};                               // 8 - 8: the list ends
    fields.scalingLists[3] = {0, 5, 248};                        // 8 + 248 is 256: ends too
    fields.scalingLists[5] = std::vector<std::int32_t>(16, -4);  // the standard: ends behind the second
    fields.scalingLists[6] = {-3};                               // of 64 entries one is read
    fields.scalingLists[7] = {7};
    const SPSset sps = ParseSps(fields);
    EXPECT_TRUE(sps.valid);
    EXPECT_EQ(sps.seq_scaling_list_present_flag, (std::vector<std::uint32_t>{1, 1, 0, 1, 0, 1, 1, 1}));
    EXPECT_EQ(sps.pic_order_cnt_type, 0U);
    EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb_minus4, 2U);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 119U);
    EXPECT_EQ(sps.pic_height_in_map_units_minus1, 67U);
}

TEST(ParameterSetParser, ScalingListStepFollowsTheStandardWithAList) {
    BitWriter w;
    w.Se(2).Se(-4).Se(-6).Se(99);
    Bytes bytes = w.Bytes();
    ParameterSetParser parser;
    parser.InitParser(bytes.data(), static_cast<unsigned int>(bytes.size()));
    unsigned int list[5] = {};
    Access::ReadScalingList(parser, list, 5);
    EXPECT_EQ(std::vector<unsigned int>(list, list + 5), (std::vector<unsigned int>{10, 6, 6, 6, 6}));
    EXPECT_EQ(Access::Position(parser), BitWriter().Se(2).Se(-4).Se(-6).BitCount());

    // Without a list every delta counts from 8.
    parser.InitParser(bytes.data(), static_cast<unsigned int>(bytes.size()));
    Access::ReadScalingList(parser, nullptr, 4);
    EXPECT_EQ(Access::Position(parser), w.BitCount());
}

TEST(ParameterSetParser, NalHeaderIsNotLookedAt) {
    Bytes bytes = FullHdSps().Bytes();
    for (const unsigned char header : Bytes{0x00, 0x68, 0xFF}) {
        bytes[0] = header;
        EXPECT_TRUE(ParseSps(bytes).valid);
        EXPECT_EQ(ParseSps(bytes).profile_idc, 100U);
    }
}

TEST(ParameterSetParser, EmulationPreventionBytesAreNotRemoved) {
    // profile_idc 66, flags 0, level 0, then the code word "1" moved behind a byte 3.
    const SPSset sps = ParseSps(Bytes{0x67, 0x42, 0x00, 0x00, 0x03, 0x80});
    EXPECT_EQ(sps.level_idc, 0U);
    EXPECT_EQ(sps.seq_parameter_set_id, 111U);  // 0000001 110000: the standard reads 0 from the byte 0x80
}

TEST(ParameterSetParser, SpsCutShortAtEveryBitIsInvalidAndLeavesTheSizeAlone) {
    const auto cutAtEveryBit = [](const SpsFields& fields) {
        const BitWriter whole = fields.Write();
        const Bytes bytes = whole.Bytes();
        // A cut at a bit is a cut at its byte with the bits behind it gone, which only whole bytes can show;
        // the bits themselves are moved through all positions by a longer and longer parameter set id.
        for (std::size_t size = 0; size <= bytes.size(); ++size) {
            Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
            const bool complete = size * 8 >= whole.BitCount();
            ParameterSetParser parser;
            parser.SetSPSArray(part.data(), static_cast<unsigned int>(part.size()));
            EXPECT_EQ(parser.GetSPS().valid, complete) << size;
            unsigned int width = 11;
            unsigned int height = 12;
            parser.GetImageSize(width, height);
            EXPECT_EQ(width == 11 && height == 12, !complete) << size;
            EXPECT_EQ(parser.GetPixelFormat() == MediaPacket::kPixelUnknown, !complete) << size;
        }
    };
    for (std::uint32_t id = 0; id < 300; ++id) {
        SpsFields fields = FullHdSps();
        fields.seq_parameter_set_id = id;
        cutAtEveryBit(fields);
        fields.pic_order_cnt_type = 1;
        fields.offset_for_ref_frame = {1, -300, static_cast<std::int32_t>(id)};
        cutAtEveryBit(fields);
    }
}

TEST(ParameterSetParser, FlagsBehindTheEndAreAllOnes) {
    const SPSset sps = ParseSps(Bytes{0x67, 0x42});
    EXPECT_FALSE(sps.valid);
    EXPECT_EQ(sps.profile_idc, 0x42U);
    EXPECT_EQ(sps.constraint_set0_flag, kAllOnes);
    EXPECT_EQ(sps.reserved_zero_2bits, kAllOnes);
    EXPECT_EQ(sps.level_idc, kAllOnes);
    EXPECT_EQ(sps.seq_parameter_set_id, 0U);
    EXPECT_EQ(sps.pic_order_cnt_type, 0U);
    EXPECT_EQ(sps.frame_mbs_only_flag, kAllOnes);
    EXPECT_EQ(sps.mb_adaptive_frame_field_flag, 0U);
    EXPECT_EQ(sps.frame_cropping_flag, kAllOnes);
    EXPECT_EQ(sps.frame_crop_left_offset, 0U);
    EXPECT_EQ(sps.vui_parameters_present_flag, kAllOnes);

    const PPSset pps = ParsePps(Bytes{});
    EXPECT_FALSE(pps.valid);
    EXPECT_EQ(pps.entropy_coding_mode_flag, kAllOnes);
    EXPECT_EQ(pps.num_slice_groups_minus1, 0U);
    EXPECT_EQ(pps.weighted_bipred_idc, kAllOnes);
    EXPECT_EQ(pps.pic_init_qp_minus26, 0U);
}

TEST(ParameterSetParser, NoDataIsInvalid) {
    SPSset sps = ParseSps(FullHdSps());
    ParameterSetParser parser;
    parser.ParseSPS(nullptr, 0, sps);
    EXPECT_FALSE(sps.valid);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 0U);
    PPSset pps;
    parser.ParsePPS(nullptr, 1000, pps);
    EXPECT_FALSE(pps.valid);
    parser.SetSPSArray(nullptr, 0xFFFFFFFF);
    parser.SetPPSArray(nullptr, 0);
    EXPECT_FALSE(parser.GetSPS().valid);
}

// Up to 2^32 - 1 entries may be announced; reading ends with the data.
TEST(ParameterSetParser, HugeOrderCountCycleEndsWithTheData) {
    const auto announce = [](std::uint32_t count, int entries) {
        BitWriter w;
        w.U(8, 0x67).U(8, 66).U(16, 30).Ue(0).Ue(0).Ue(1).Flag(false).Se(0).Se(0).Ue(count);
        for (int i = 0; i < entries; ++i) {
            w.Se(i + 1);
        }
        return w.Bytes();
    };
    for (const std::uint32_t count : {0xFFFFFFFEU, 0x80000000U, 1'000'000U, 256U}) {
        const SPSset sps = ParseSps(announce(count, 3));
        EXPECT_FALSE(sps.valid);
        EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, count);
        EXPECT_EQ(sps.offset_for_ref_frame.size(), 255U);
        EXPECT_EQ(sps.offset_for_ref_frame[0], 1);
        EXPECT_EQ(sps.offset_for_ref_frame[2], 3);
        EXPECT_EQ(sps.offset_for_ref_frame[254], 0);
        EXPECT_EQ(sps.max_num_ref_frames, 0U);
        EXPECT_EQ(sps.gaps_in_frame_num_value_allowed_flag, kAllOnes);
    }
    const SPSset allowed = ParseSps(announce(255, 3));
    EXPECT_EQ(allowed.offset_for_ref_frame.size(), 255U);
    EXPECT_FALSE(allowed.valid);
    EXPECT_EQ(ParseSps(announce(7, 3)).offset_for_ref_frame.size(), 7U);
    EXPECT_TRUE(ParseSps(announce(0, 0)).offset_for_ref_frame.empty());
}

// What the data hold is kept whole, also beyond the standard's limit.
TEST(ParameterSetParser, LongOrderCountCycleIsKeptWhole) {
    SpsFields fields;
    fields.pic_order_cnt_type = 1;
    for (int i = 0; i < 5'000; ++i) {
        fields.offset_for_ref_frame.push_back(i - 2'500);
    }
    const SPSset sps = ParseSps(fields);
    EXPECT_TRUE(sps.valid);
    EXPECT_EQ(sps.offset_for_ref_frame, fields.offset_for_ref_frame);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19U);
}

TEST(ParameterSetParser, EveryFieldOfThePictureParameterSet) {
    PpsFields fields;
    fields.pic_parameter_set_id = 255;
    fields.seq_parameter_set_id = 31;
    fields.bottom_field_pic_order_in_frame_present_flag = true;
    fields.num_ref_idx_l0_default_active_minus1 = 2;
    fields.num_ref_idx_l1_default_active_minus1 = 31;
    fields.weighted_pred_flag = true;
    fields.weighted_bipred_idc = 2;
    fields.constrained_intra_pred_flag = true;
    fields.redundant_pic_cnt_present_flag = true;
    const PPSset pps = ParsePps(fields);
    EXPECT_TRUE(pps.valid);
    EXPECT_EQ(pps.pic_parameter_set_id, 255U);
    EXPECT_EQ(pps.seq_parameter_set_id, 31U);
    EXPECT_EQ(pps.entropy_coding_mode_flag, 1U);
    EXPECT_EQ(pps.bottom_field_pic_order_in_frame_present_flag, 1U);
    EXPECT_EQ(pps.num_slice_groups_minus1, 0U);
    EXPECT_EQ(pps.slice_group_map_type, 0U);
    EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 2U);
    EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 31U);
    EXPECT_EQ(pps.weighted_pred_flag, 1U);
    EXPECT_EQ(pps.weighted_bipred_idc, 2U);
    EXPECT_EQ(pps.deblocking_filter_control_present_flag, 1U);
    EXPECT_EQ(pps.constrained_intra_pred_flag, 1U);
    EXPECT_EQ(pps.redundant_pic_cnt_present_flag, 1U);
}

TEST(ParameterSetParser, QuantiserOffsetsAreCodeNumbers) {
    PpsFields fields;
    fields.pic_init_qp_minus26 = -3;
    fields.pic_init_qs_minus26 = 4;
    fields.chroma_qp_index_offset = -12;
    const PPSset pps = ParsePps(fields);
    EXPECT_TRUE(pps.valid);
    EXPECT_EQ(pps.pic_init_qp_minus26, 6U);
    EXPECT_EQ(pps.pic_init_qs_minus26, 7U);
    EXPECT_EQ(pps.chroma_qp_index_offset, 24U);
}

TEST(ParameterSetParser, SliceGroupMapTypes) {
    for (std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 1'000U}) {
        PpsFields fields;
        fields.num_slice_groups_minus1 = 2;
        fields.slice_group_map_type = type;
        fields.run_length_minus1 = {5, 6, 7};
        fields.top_left = {1, 2};
        fields.bottom_right = {30, 40};
        fields.slice_group_change_direction_flag = true;
        fields.slice_group_change_rate_minus1 = 98;
        fields.num_ref_idx_l0_default_active_minus1 = 9;
        const PPSset pps = ParsePps(fields);
        EXPECT_TRUE(pps.valid) << type;
        EXPECT_EQ(pps.slice_group_map_type, type);
        using List = std::vector<std::uint32_t>;
        EXPECT_EQ(pps.run_length_minus1, type == 0 ? (List{5, 6, 7}) : List{}) << type;
        EXPECT_EQ(pps.top_left, type == 2 ? (List{1, 2}) : List{}) << type;
        EXPECT_EQ(pps.bottom_right, type == 2 ? (List{30, 40}) : List{}) << type;
        const bool change = type >= 3 && type <= 5;
        EXPECT_EQ(pps.slice_group_change_direction_flag, change ? 1U : 0U) << type;
        EXPECT_EQ(pps.slice_group_change_rate_minus1, change ? 98U : 0U) << type;
        EXPECT_EQ(pps.pic_size_in_map_units_minus1, 0U) << type;
        EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 9U) << type;
    }
}

TEST(ParameterSetParser, SliceGroupIdsAreNotRead) {
    PpsFields fields;
    fields.num_slice_groups_minus1 = 1;
    fields.slice_group_map_type = 6;
    fields.slice_group_id = {0, 1, 0, 0};
    fields.num_ref_idx_l0_default_active_minus1 = 2;  // 011
    const PPSset pps = ParsePps(fields);
    EXPECT_EQ(pps.pic_size_in_map_units_minus1, 3U);
    // The ids 0100 and then 011 are read as 010 (1) and 00011.. of the fields behind.
    EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 1U);
    EXPECT_NE(pps.num_ref_idx_l1_default_active_minus1, 0U);
}

TEST(ParameterSetParser, HugeSliceGroupCountsEndWithTheData) {
    const auto announce = [](std::uint32_t groups, std::uint32_t type) {
        BitWriter w;
        w.U(8, 0x68).Ue(0).Ue(0).Flag(true).Flag(false).Ue(groups).Ue(type).Ue(4).Ue(5).Ue(6);
        return w.Bytes();
    };
    for (const std::uint32_t groups : {0xFFFFFFFEU, 0x7FFFFFFFU, 8U}) {
        const PPSset runs = ParsePps(announce(groups, 0));
        EXPECT_FALSE(runs.valid);
        EXPECT_EQ(runs.run_length_minus1.size(), 8U);
        EXPECT_EQ(runs.run_length_minus1[2], 6U);
        EXPECT_EQ(runs.run_length_minus1[7], 0U);
        const PPSset corners = ParsePps(announce(groups, 2));
        EXPECT_FALSE(corners.valid);
        EXPECT_EQ(corners.top_left.size(), 8U);
        EXPECT_EQ(corners.bottom_right.size(), 8U);
        EXPECT_EQ(corners.top_left[0], 4U);
        EXPECT_EQ(corners.bottom_right[0], 5U);
        EXPECT_EQ(corners.top_left[1], 6U);
    }
    // 2^32 - 1: the count of run lengths does not wrap to 0. The code needs 33
    // bits of prefix, whose last is free.
    BitWriter w;
    w.U(8, 0x68).Ue(0).Ue(0).Flag(true).Flag(false).U(32, 0).U(1, 1).U(32, 0xFFFFFFFF).Ue(0).Ue(4).Ue(5);
    const PPSset most = ParsePps(w.Bytes());
    EXPECT_EQ(most.num_slice_groups_minus1, 0xFFFFFFFFU);
    ASSERT_EQ(most.run_length_minus1.size(), 8U);
    EXPECT_EQ(most.run_length_minus1[0], 4U);
    EXPECT_EQ(most.run_length_minus1[1], 5U);
}

TEST(ParameterSetParser, PpsCutShortIsInvalid) {
    for (std::uint32_t id = 0; id < 300; ++id) {
        PpsFields fields;
        fields.pic_parameter_set_id = id;
        fields.num_slice_groups_minus1 = 1 + id % 7;
        fields.slice_group_map_type = 0;
        fields.run_length_minus1.assign(fields.num_slice_groups_minus1 + 1, id);
        const BitWriter whole = fields.Write();
        const Bytes bytes = whole.Bytes();
        for (std::size_t size = 0; size <= bytes.size(); ++size) {
            const Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(ParsePps(part).valid, size * 8 >= whole.BitCount()) << id << ' ' << size;
        }
    }
}

TEST(ParameterSetParser, EachParseClearsTheRecordFirst) {
    ParameterSetParser parser = WithSps(FullHdSps());
    Bytes cut{0x67};
    parser.SetSPSArray(cut.data(), 1);
    EXPECT_FALSE(parser.GetSPS().valid);
    EXPECT_EQ(parser.GetSPS().profile_idc, kAllOnes);
    EXPECT_EQ(parser.GetSPS().pic_width_in_mbs_minus1, 0U);

    SPSset out = ParseSps(FullHdSps());
    out.offset_for_ref_frame = {1, 2};
    parser.ParseSPS(cut.data(), 1, out);
    EXPECT_TRUE(out.offset_for_ref_frame.empty());
    EXPECT_EQ(out.chroma_format_idc, 0U);
}

TEST(ParameterSetParser, ParsingIntoAnotherRecordKeepsTheOwnOnes) {
    ParameterSetParser parser = WithSps(FullHdSps());
    SPSset other;
    Bytes bytes = SpsFields().Bytes();
    parser.ParseSPS(bytes.data(), static_cast<unsigned int>(bytes.size()), other);
    EXPECT_EQ(other.pic_width_in_mbs_minus1, 19U);
    EXPECT_EQ(parser.GetSPS().pic_width_in_mbs_minus1, 119U);
}

TEST(ParameterSetParser, CopiesOutliveTheirOriginalAndGoTheirOwnWay) {
    auto original = std::make_unique<ParameterSetParser>();
    std::string text =
        testing::EncodeBase64(FullHdSps().Bytes()) + "," + testing::EncodeBase64(PpsFields().Bytes());
    original->SetSpropsString(text);
    ParameterSetParser copy(*original);
    ParameterSetParser assigned;
    assigned = *original;
    assigned = *&assigned;

    EXPECT_EQ(Access::Buffer(*original), Access::PpsBytes(*original).data());
    EXPECT_EQ(Access::Buffer(copy), Access::PpsBytes(copy).data());
    EXPECT_EQ(Access::Buffer(assigned), Access::PpsBytes(assigned).data());
    EXPECT_EQ(Access::Position(copy), Access::Position(*original));
    original.reset();
    for (ParameterSetParser* parser : {&copy, &assigned}) {
        unsigned int width = 0;
        unsigned int height = 0;
        parser->GetImageSize(width, height);
        EXPECT_EQ(Size(width, height), Size(1920, 1080));
        EXPECT_EQ(Access::SpsBytes(*parser), FullHdSps().Bytes());
    }
    Bytes small = SpsFields().Bytes();
    copy.SetSPSArray(small.data(), static_cast<unsigned int>(small.size()));
    EXPECT_EQ(copy.GetSPS().pic_width_in_mbs_minus1, 19U);
    EXPECT_EQ(assigned.GetSPS().pic_width_in_mbs_minus1, 119U);
}

TEST(ParameterSetParser, CopyOfAParserOnForeignBytesSharesThem) {
    Bytes bytes = FullHdSps().Bytes();
    ParameterSetParser parser;
    parser.SetSPSArray(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const ParameterSetParser copy(parser);
    EXPECT_EQ(Access::Buffer(copy), bytes.data());
}

}  // namespace
}  // namespace camclock
