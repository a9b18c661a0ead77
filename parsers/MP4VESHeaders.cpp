// The four header steps of MP4VESParser, in the order of the syntax tables of ISO/IEC 14496-2, 6.2. A step
// that finds fewer than 32 bits does nothing at all.
#include <camclock/MP4VESParser.h>

#include "parsers/StartCodes.h"

#include <algorithm>

namespace camclock {
namespace {

enum Shape : unsigned int { kRectangular = 0, kBinary = 1, kBinaryOnly = 2, kGrayscale = 3 };

enum Sprite : unsigned int { kStaticSprite = 1, kGlobalMotion = 2 };

enum CodingType : unsigned int { kCodedI = 0, kCodedP = 1, kCodedB = 2, kCodedS = 3 };

constexpr unsigned int kExtendedAspectRatio = 15;  // table 6-12
constexpr unsigned int kVideoObject = 1;           // visual_object_type, table 6-7

}  // namespace

void MP4VESParser::_VisualObjectSequence() {
    if (!_AtLeast32BitsLeft()) {
        return;
    }
    sequence_.present = true;
    sequence_.visual_object_sequence_start_code = _ReadBits(32);
    sequence_.profile_and_level_indication = _ReadBits(8);
    while (_NextBitsAre(32, kUserDataStartCode)) {
        _UserData();
    }
    // The peek above counts: a sequence header that nothing follows is not valid.
    sequence_.valid = !endOfData_;
    _VisualObject();
}

void MP4VESParser::_VisualObject() {
    if (!_AtLeast32BitsLeft()) {
        return;
    }
    object_.present = true;
    object_.visual_object_start_code = _ReadBits(32);
    object_.is_visual_object_identifier = _ReadBit();
    if (object_.is_visual_object_identifier != 0) {
        object_.visual_object_verid = _ReadBits(4);
        object_.visual_object_priority = _ReadBits(3);
    }
    object_.visual_object_type = _ReadBits(4);
    object_.valid = !endOfData_;

    // Deliberate: video_signal_type and what belongs to it are not parsed, and user data is not passed over
    // here (MP4VESParser.VideoSignalTypeIsNotParsed, MP4VESParser.UserDataBehindTheObjectHeaderIsNotSkipped).
    _NextStartCode();
    if (object_.visual_object_type == kVideoObject) {
        object_.video_object_start_code = _ReadBits(32);
        _VideoObjectLayer();
    }
    if (!_NextBitsAre(24, kStartCodePrefix)) {
        _NextStartCode();
    }
}

void MP4VESParser::_VideoObjectLayer() {
    if (!_AtLeast32BitsLeft()) {
        return;
    }
    const unsigned int startCode = _NextBits(32);
    if (startCode < kFirstLayerStartCode || startCode > kLastLayerStartCode) {
        return;
    }
    layer_.present = true;
    layer_.video_object_layer_start_code = _ReadBits(32);
    layer_.random_accessible_vol = _ReadBit();
    layer_.video_object_type_indication = _ReadBits(8);
    layer_.is_object_layer_identifier = _ReadBit();
    if (layer_.is_object_layer_identifier != 0) {
        layer_.video_object_layer_verid = _ReadBits(4);
        layer_.video_object_layer_priority = _ReadBits(3);
    }
    // Deliberate: without an identifier the verid stays what it was, 0 at first, where the standard infers 1:
    // such a layer is read as one of verid 2 and above (MP4VESParser.LayerWithoutIdentifierHasVerid0).
    const bool verid1 = layer_.video_object_layer_verid == 1;

    layer_.aspect_ratio_info = _ReadBits(4);
    if (layer_.aspect_ratio_info == kExtendedAspectRatio) {
        layer_.par_width = _ReadBits(8);
        layer_.par_height = _ReadBits(8);
    }
    layer_.vol_control_parameters = _ReadBit();
    if (layer_.vol_control_parameters != 0) {
        _LayerControlParameters();
    }
    layer_.video_object_layer_shape = _ReadBits(2);
    if (layer_.video_object_layer_shape == kGrayscale && !verid1) {
        layer_.video_object_layer_shape_extension = _ReadBits(4);
    }
    _Marker();
    layer_.vop_time_increment_resolution = _ReadBits(16);
    _Marker();
    layer_.fixed_vop_rate = _ReadBit();
    if (layer_.fixed_vop_rate != 0) {
        // Deliberate: the bits of the resolution itself, where the standard means those of resolution - 1
        // (MP4VESParser.TimeIncrementHasTheBitsOfTheResolution).
        layer_.fixed_vop_time_increment = _ReadBits(_necessaryBits(layer_.vop_time_increment_resolution));
    }
    if (layer_.video_object_layer_shape != kBinaryOnly) {
        _LayerTexture();
    } else {
        if (!verid1) {
            layer_.scalability = _ReadBit();
            if (layer_.scalability != 0) {
                layer_.ref_layer_id = _ReadBits(4);
                _ShapeSamplingFactors();
            }
        }
        layer_.resync_marker_disable = _ReadBit();
    }
    // Before the peeks below: a layer header that nothing follows is valid.
    layer_.valid = !endOfData_;

    _NextStartCode();
    while (_NextBitsAre(32, kUserDataStartCode)) {
        _UserData();
    }
    if (layer_.sprite_enable == kStaticSprite && layer_.low_latency_sprite_enable == 0) {
        _VideoObjectPlane();
    }
    // Deliberate: a group of VOP header is not parsed; its bytes are read as a VOP header
    // (MP4VESParser.GroupOfVopHeaderBehindALayerIsReadAsAVop). Every turn that goes on has consumed 32 bits.
    unsigned int next = 0;
    do {
        _VideoObjectPlane();
        // The standard also looks here behind a B- or S-VOP of a rectangular layer; that is left out.
        if (layer_.video_object_layer_shape != kRectangular && _NextBitsAre(32, kStuffingStartCode)) {
            layer_.stuffing_start_code = _ReadBits(32);
            _SkipToStartCodePrefix();
        }
        next = _NextBits(32);
    } while (next == kGroupOfVopStartCode || next == kVopStartCode);
}

void MP4VESParser::_LayerControlParameters() {
    layer_.chroma_format = _ReadBits(2);
    layer_.low_delay = _ReadBit();
    layer_.vbv_parameters = _ReadBit();
    if (layer_.vbv_parameters == 0) {
        return;
    }
    layer_.first_half_bit_rate = _ReadBits(15);
    _Marker();
    layer_.latter_half_bit_rate = _ReadBits(15);
    _Marker();
    layer_.first_half_vbv_buffer_size = _ReadBits(15);
    _Marker();
    layer_.latter_half_vbv_buffer_size = _ReadBits(3);
    layer_.first_half_vbv_occupancy = _ReadBits(11);
    _Marker();
    layer_.latter_half_vbv_occupancy = _ReadBits(15);
    _Marker();
}

// Of every layer that is not binary only.
void MP4VESParser::_LayerTexture() {
    const unsigned int shape = layer_.video_object_layer_shape;
    const bool verid1 = layer_.video_object_layer_verid == 1;
    if (shape == kRectangular) {
        _Marker();
        layer_.video_object_layer_width = _ReadBits(13);
        _Marker();
        layer_.video_object_layer_height = _ReadBits(13);
        _Marker();
    }
    layer_.interlaced = _ReadBit();
    layer_.obmc_disable = _ReadBit();
    layer_.sprite_enable = _ReadBits(verid1 ? 1 : 2);
    _LayerSprite();
    if (!verid1 && shape != kRectangular) {
        layer_.sadct_disable = _ReadBit();
    }
    layer_.not_8_bit = _ReadBit();
    if (layer_.not_8_bit != 0) {
        layer_.quant_precision = _ReadBits(4);
        layer_.bits_per_pixel = _ReadBits(4);
    }
    if (shape == kGrayscale) {
        layer_.no_gray_quant_update = _ReadBit();
        layer_.composition_method = _ReadBit();
        layer_.linear_composition = _ReadBit();
    }
    layer_.quant_type = _ReadBit();
    if (layer_.quant_type != 0) {
        // Deliberate: the matrices themselves are not read, nor the flags of the auxiliary components
        // (MP4VESParser.QuantiserMatricesAreNotRead).
        layer_.load_intra_quant_mat = _ReadBit();
        layer_.load_nonintra_quant_mat = _ReadBit();
    }
    if (!verid1) {
        layer_.quarter_sample = _ReadBit();
    }
    // Deliberate: the estimation header that a 0 announces is not parsed
    // (MP4VESParser.ComplexityEstimationHeaderIsNotParsed).
    layer_.complexity_estimation_disable = _ReadBit();
    layer_.resync_marker_disable = _ReadBit();
    layer_.data_partitioned = _ReadBit();
    if (layer_.data_partitioned != 0) {
        layer_.reversible_vlc = _ReadBit();
    }
    if (!verid1) {
        layer_.newpred_enable = _ReadBit();
        if (layer_.newpred_enable != 0) {
            layer_.requested_upstream_message_type = _ReadBits(2);
            layer_.newpred_segment_type = _ReadBit();
        }
        layer_.reduced_resolution_vop_enable = _ReadBit();
    }
    layer_.scalability = _ReadBit();
    if (layer_.scalability != 0) {
        _LayerScalability();
    }
}

void MP4VESParser::_LayerSprite() {
    const bool isStatic = layer_.sprite_enable == kStaticSprite;
    if (!isStatic && layer_.sprite_enable != kGlobalMotion) {
        return;
    }
    if (isStatic) {
        layer_.sprite_width = _ReadBits(13);
        _Marker();
        layer_.sprite_height = _ReadBits(13);
        _Marker();
        layer_.sprite_left_coordinate = _ReadBits(13);
        _Marker();
        layer_.sprite_top_coordinate = _ReadBits(13);
        _Marker();
    }
    layer_.no_of_sprite_warping_points = _ReadBits(6);
    layer_.sprite_warping_accuracy = _ReadBits(2);
    layer_.sprite_brightness_change = _ReadBit();
    if (isStatic) {
        layer_.low_latency_sprite_enable = _ReadBit();
    }
}

void MP4VESParser::_LayerScalability() {
    layer_.hierarchy_type = _ReadBit();
    layer_.ref_layer_id = _ReadBits(4);
    layer_.ref_layer_sampling_direc = _ReadBit();
    layer_.hor_sampling_factor_n = _ReadBits(5);
    layer_.hor_sampling_factor_m = _ReadBits(5);
    layer_.vert_sampling_factor_n = _ReadBits(5);
    layer_.vert_sampling_factor_m = _ReadBits(5);
    layer_.enhancement_type = _ReadBit();
    if (layer_.video_object_layer_shape == kBinary && layer_.hierarchy_type == 0) {
        layer_.use_ref_shape = _ReadBit();
        layer_.use_ref_texture = _ReadBit();
        _ShapeSamplingFactors();
    }
}

void MP4VESParser::_ShapeSamplingFactors() {
    layer_.shape_hor_sampling_factor_n = _ReadBits(5);
    layer_.shape_hor_sampling_factor_m = _ReadBits(5);
    layer_.shape_vert_sampling_factor_n = _ReadBits(5);
    layer_.shape_vert_sampling_factor_m = _ReadBits(5);
}

void MP4VESParser::_VideoObjectPlane() {
    if (!_AtLeast32BitsLeft()) {
        return;
    }
    plane_.present = true;
    plane_.vop_start_code = _ReadBits(32);  // Deliberate: not checked, see the loop over the VOPs of a layer
    plane_.vop_coding_type = _ReadBits(2);
    do {
        plane_.modulo_time_base = _ReadBit();
    } while (plane_.modulo_time_base != 0 && !endOfData_);
    _Marker();
    plane_.vop_time_increment = _ReadBits(_necessaryBits(layer_.vop_time_increment_resolution));
    _Marker();
    plane_.vop_coded = _ReadBit();
    if (plane_.vop_coded == 0) {
        // Deliberate: a VOP that is not coded does not become valid, so it has no frame type
        // (MP4VESParser.NotCodedVopHasNoFrameType).
        _NextStartCode();
        return;
    }
    _PlanePrediction();
    const bool rectangular = layer_.video_object_layer_shape == kRectangular;
    if (rectangular && layer_.reduced_resolution_vop_enable != 0 && plane_.vop_coding_type != kCodedB &&
        plane_.vop_coding_type != kCodedS) {
        plane_.vop_reduced_resolution = _ReadBit();
    }
    // Deliberate: of a rectangular VOP the rest of the header is not read: its kind is known
    // (MP4VESParser.RectangularVopHeaderEndsEarly).
    if (!rectangular) {
        _PlaneShape();
    }
    plane_.valid = !endOfData_;
}

void MP4VESParser::_PlanePrediction() {
    if (layer_.newpred_enable != 0) {
        const int width = (std::min)(_necessaryBits(layer_.vop_time_increment_resolution) + 3, 15);
        plane_.vop_id = _ReadBits(width);
        plane_.vop_id_for_prediction_indication = _ReadBit();
        if (plane_.vop_id_for_prediction_indication != 0) {
            plane_.vop_id_for_prediction = _ReadBits(width);
            // Deliberate: only here, where the standard has the marker in either case
            // (MP4VESParser.NewpredMarkerOnlyBehindAPredictionId).
            _Marker();
        }
    }
    const bool predicted = plane_.vop_coding_type == kCodedP ||
                           (plane_.vop_coding_type == kCodedS && layer_.sprite_enable == kGlobalMotion);
    if (layer_.video_object_layer_shape != kBinaryOnly && predicted) {
        plane_.vop_rounding_type = _ReadBit();
    }
}

// Of every VOP that is not rectangular.
void MP4VESParser::_PlaneShape() {
    if (layer_.sprite_enable != kStaticSprite || plane_.vop_coding_type != kCodedI) {
        plane_.vop_width = _ReadBits(13);
        _Marker();
        plane_.vop_height = _ReadBits(13);
        _Marker();
        plane_.vop_horizontal_mc_spatial_ref = _ReadBits(13);
        _Marker();
        plane_.vop_vertical_mc_spatial_ref = _ReadBits(13);
        _Marker();
    }
    if (layer_.video_object_layer_shape != kBinaryOnly && layer_.scalability != 0 &&
        layer_.enhancement_type != 0) {
        plane_.background_composition = _ReadBit();
    }
    plane_.change_conv_ratio_disable = _ReadBit();
    plane_.vop_constant_alpha = _ReadBit();
    if (plane_.vop_constant_alpha != 0) {
        plane_.vop_constant_alpha_value = _ReadBits(8);
    }
}

}  // namespace camclock
