#pragma once

#include <camclock/BinaryStreamParser.h>
#include <camclock/Export.h>
#include <camclock/MediaPacket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace camclock {

/// How large are the pictures of an MPEG-4 Visual stream, and of what kind is this frame? Parses the headers
/// of the elementary stream (ISO/IEC 14496-2, 6.2): visual object sequence, visual object, video object layer
/// and video object plane; user data is passed over.
///
/// Feed it the stream's configuration once (the `config` of the SDP's `fmtp` line, RFC 6416, 7.1, is hex text
/// for `TryParseString`), then the start of every frame (`TryParse`), and ask for the kind of the latest
/// frame. The object accumulates: a field that a header does not carry keeps the value of an earlier one, or
/// 0, and a frame is read with the settings of the last layer header.
///
/// Where it leaves the standard it does so on purpose: docs/departures.md lists every place.
///
/// Owned by the application, one per stream; copies are independent of each other. One thread at a time per
/// object. Nothing is thrown but `std::bad_alloc`. Any bytes may be handed in; time grows linearly with them.
///
///     camclock::MP4VESParser parser;
///     parser.TryParseString(configOfTheSdp);
///     parser.TryParse(frame.data(), static_cast<unsigned int>(frame.size()));
///     bool valid = false;
///     const bool isKeyFrame = parser.GetFrameType(valid) == camclock::MediaPacket::kFrameI && valid;
class CAMCLOCK_API MP4VESParser : public BinaryStreamParser {
public:
    // The headers, with the standard's names. A one-bit field that was read past
    // the end of the data holds 32 ones.

    /// Visual object sequence header (6.2.2).
    struct VisualObjectSequence {
        bool valid = false;    ///< the latest parse read it whole
        bool present = false;  ///< some parse has come upon it
        std::uint32_t visual_object_sequence_start_code = 0;
        std::uint32_t profile_and_level_indication = 0;
    };

    /// Visual object header (6.2.2).
    struct VisualObject {
        bool valid = false;    ///< the latest parse read it whole
        bool present = false;  ///< some parse has come upon it
        std::uint32_t visual_object_start_code = 0;
        std::uint32_t is_visual_object_identifier = 0;
        std::uint32_t visual_object_verid = 0;
        std::uint32_t visual_object_priority = 0;
        std::uint32_t visual_object_type = 0;  ///< 1 is video
        std::uint32_t video_object_start_code = 0;
    };

    /// Video object layer header (6.2.3).
    struct VideoObjectLayer {
        bool valid = false;    ///< the latest parse read it whole
        bool present = false;  ///< some parse has come upon it
        std::uint32_t video_object_layer_start_code = 0;
        std::uint32_t random_accessible_vol = 0;
        std::uint32_t video_object_type_indication = 0;
        std::uint32_t is_object_layer_identifier = 0;
        std::uint32_t video_object_layer_verid = 0;
        std::uint32_t video_object_layer_priority = 0;
        std::uint32_t aspect_ratio_info = 0;
        std::uint32_t par_width = 0;
        std::uint32_t par_height = 0;
        std::uint32_t vol_control_parameters = 0;
        std::uint32_t chroma_format = 0;  ///< 1 is 4:2:0
        std::uint32_t low_delay = 0;
        std::uint32_t vbv_parameters = 0;
        std::uint32_t first_half_bit_rate = 0;
        std::uint32_t latter_half_bit_rate = 0;
        std::uint32_t first_half_vbv_buffer_size = 0;
        std::uint32_t latter_half_vbv_buffer_size = 0;
        std::uint32_t first_half_vbv_occupancy = 0;
        std::uint32_t latter_half_vbv_occupancy = 0;
        std::uint32_t video_object_layer_shape = 0;  ///< 0 rectangular, 1 binary, 2 binary only, 3 grayscale
        std::uint32_t video_object_layer_shape_extension = 0;
        std::uint32_t vop_time_increment_resolution = 0;  ///< ticks per second
        std::uint32_t fixed_vop_rate = 0;
        std::uint32_t fixed_vop_time_increment = 0;
        std::uint32_t video_object_layer_width = 0;   ///< pixels; rectangular layers only
        std::uint32_t video_object_layer_height = 0;  ///< pixels; rectangular layers only
        std::uint32_t obmc_disable = 0;
        std::uint32_t sprite_width = 0;
        std::uint32_t sprite_height = 0;
        std::uint32_t sprite_left_coordinate = 0;
        std::uint32_t sprite_top_coordinate = 0;
        std::uint32_t no_of_sprite_warping_points = 0;
        std::uint32_t sprite_warping_accuracy = 0;
        std::uint32_t sprite_brightness_change = 0;
        std::uint32_t low_latency_sprite_enable = 0;
        std::uint32_t sadct_disable = 0;
        std::uint32_t not_8_bit = 0;
        std::uint32_t quant_precision = 0;
        std::uint32_t bits_per_pixel = 0;
        std::uint32_t no_gray_quant_update = 0;
        std::uint32_t composition_method = 0;
        std::uint32_t linear_composition = 0;
        std::uint32_t quant_type = 0;
        std::uint32_t load_intra_quant_mat = 0;
        std::uint32_t load_nonintra_quant_mat = 0;
        std::uint32_t load_intra_quant_mat_grayscale = 0;     ///< never read
        std::uint32_t load_nonintra_quant_mat_grayscale = 0;  ///< never read
        std::uint32_t quarter_sample = 0;
        std::uint32_t resync_marker_disable = 0;
        std::uint32_t data_partitioned = 0;
        std::uint32_t reversible_vlc = 0;
        std::uint32_t requested_upstream_message_type = 0;
        std::uint32_t newpred_segment_type = 0;
        std::uint32_t hierarchy_type = 0;
        std::uint32_t ref_layer_id = 0;
        std::uint32_t ref_layer_sampling_direc = 0;
        std::uint32_t hor_sampling_factor_n = 0;
        std::uint32_t hor_sampling_factor_m = 0;
        std::uint32_t vert_sampling_factor_n = 0;
        std::uint32_t vert_sampling_factor_m = 0;
        std::uint32_t use_ref_shape = 0;
        std::uint32_t use_ref_texture = 0;
        std::uint32_t shape_hor_sampling_factor_n = 0;
        std::uint32_t shape_hor_sampling_factor_m = 0;
        std::uint32_t shape_vert_sampling_factor_n = 0;
        std::uint32_t shape_vert_sampling_factor_m = 0;
        std::uint32_t stuffing_start_code = 0;  ///< 0x000001C3 once stuffing has been passed over
        std::uint32_t complexity_estimation_disable = 0;
        std::uint32_t interlaced = 0;
        std::uint32_t sprite_enable = 0;  ///< 0 none, 1 static, 2 global motion compensation
        std::uint32_t newpred_enable = 0;
        std::uint32_t reduced_resolution_vop_enable = 0;
        std::uint32_t scalability = 0;
        std::uint32_t enhancement_type = 0;
    };

    /// Video object plane header (6.2.5), up to where the kind of the frame is certain.
    struct VideoObjectPlane {
        bool valid = false;    ///< the latest parse read it whole
        bool present = false;  ///< some parse has come upon it
        std::uint32_t vop_start_code = 0;
        std::uint32_t vop_coding_type = 0;     ///< 0 I, 1 P, 2 B, 3 S
        std::uint32_t modulo_time_base = 0;    ///< the last bit read
        std::uint32_t vop_time_increment = 0;  ///< in units of 1 / vop_time_increment_resolution s
        std::uint32_t vop_coded = 0;
        std::uint32_t vop_id = 0;
        std::uint32_t vop_id_for_prediction_indication = 0;
        std::uint32_t vop_id_for_prediction = 0;
        std::uint32_t vop_rounding_type = 0;
        std::uint32_t vop_reduced_resolution = 0;
        std::uint32_t vop_width = 0;
        std::uint32_t vop_height = 0;
        std::uint32_t vop_horizontal_mc_spatial_ref = 0;
        std::uint32_t vop_vertical_mc_spatial_ref = 0;
        std::uint32_t background_composition = 0;
        std::uint32_t change_conv_ratio_disable = 0;
        std::uint32_t vop_constant_alpha = 0;
        std::uint32_t vop_constant_alpha_value = 0;
    };

    /// Nothing seen yet, every field 0.
    MP4VESParser();
    MP4VESParser(const MP4VESParser& other);
    MP4VESParser& operator=(const MP4VESParser& other);
    ~MP4VESParser() override;

    /// Parses `size` bytes at `data`, which have to begin with the start code of a visual object sequence
    /// (0x000001B0), a visual object (0x000001B5) or a video object plane (0x000001B6); anything else is
    /// passed by. Either way no header counts as valid any more but those that these bytes carry whole. True
    /// in every case. The bytes are only read during the call.
    ///
    /// Deliberate: a group of VOP header (0x000001B3), with which most cameras begin their key frames, is not
    /// entered. Hand in such a frame from its VOP start code on (MP4VESParser.GroupOfVopHeaderIsNotEntered).
    bool TryParse(unsigned char* data, unsigned int size);

    /// Decodes hex text, two digits a byte, and parses the bytes as `TryParse` does. An odd last character is
    /// left out; of a pair that is no hex number, what `strtol` makes of it counts. True in every case.
    bool TryParseString(std::string& hex);

    /// The kind of the frame that the last call parsed; `kFrameUnknown` and `valid` false if it parsed none,
    /// or one that is marked as not coded.
    MediaPacket::Frametype GetFrameType(bool& valid) const;

    /// Size in pixels, as the layer header of the last call gives it: `valid` is false, and the size is left
    /// as it is, unless that call parsed one. Ask right after the configuration has been parsed.
    void GetImageSize(unsigned int& width, unsigned int& height, bool& valid) const;

    /// Always 4:2:0, the only format of MPEG-4 Visual; `valid` as for `GetImageSize`.
    MediaPacket::PixelFormat GetPixelFormat(bool& valid) const;

    /// What has been parsed so far; valid as long as the parser.
    const VisualObjectSequence& GetVisualObjectSequence() const { return sequence_; }
    const VisualObject& GetVisualObject() const { return object_; }
    const VideoObjectLayer& GetVideoObjectLayer() const { return layer_; }
    const VideoObjectPlane& GetVideoObjectPlane() const { return plane_; }

private:
    friend struct ParserTestAccess;

    void _VisualObjectSequence();
    void _VisualObject();
    void _VideoObjectLayer();
    void _VideoObjectPlane();
    void _UserData();
    void _NextStartCode();
    static int _necessaryBits(unsigned int v);

    bool _AtLeast32BitsLeft() const { return _BitsLeftInBuffer() >= 32U; }
    void _Marker() { _ReadBit(); }
    void _LayerControlParameters();
    void _LayerSprite();
    void _LayerTexture();
    void _LayerScalability();
    void _ShapeSamplingFactors();
    void _PlanePrediction();
    void _PlaneShape();
    void _SkipToStartCodePrefix();
    void _RebaseBuffer(const MP4VESParser& other);

    VideoObjectLayer layer_;
    VideoObjectPlane plane_;
    VisualObjectSequence sequence_;
    VisualObject object_;
    std::vector<unsigned char> hexBytes_;  // decoded by the last TryParseString
};

}  // namespace camclock
