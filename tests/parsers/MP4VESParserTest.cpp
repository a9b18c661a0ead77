#include <camclock/MP4VESParser.h>

#include "support/BitWriter.h"
#include "support/ParserTestAccess.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace camclock {
namespace {

using testing::BitWriter;
using Access = ParserTestAccess;
using Bytes = std::vector<unsigned char>;

constexpr unsigned int kAllOnes = 0xFFFFFFFF;

std::string Hex(const Bytes& bytes) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

void Parse(MP4VESParser& parser, Bytes bytes) {
    EXPECT_TRUE(parser.TryParse(bytes.data(), static_cast<unsigned int>(bytes.size())));
}

// Sequence and object header, up to the layer's start code.
BitWriter Preamble() {
    BitWriter w;
    w.U(32, 0x1B0).U(8, 0xF5);
    w.U(32, 0x1B5).Flag(true).U(4, 1).U(3, 1).U(4, 1).Flag(false).NextStartCode();
    w.U(32, 0x100);
    return w;
}

// A rectangular layer with an identifier of verid 1, which most encoders write.
struct Layer {
    unsigned int verid = 1;
    bool identifier = true;
    unsigned int shape = 0;
    unsigned int resolution = 25;
    unsigned int width = 640;
    unsigned int height = 480;
    bool interlaced = false;
    // Parts that a test writes in place of the plain ones.
    std::function<void(BitWriter&)> control = [](BitWriter& w) { w.Flag(false); };
    std::function<void(BitWriter&)> fixedRate = [](BitWriter& w) { w.Flag(false); };
    std::function<void(BitWriter&)> sprite;  // sprite_enable and what it brings
    std::function<void(BitWriter&)> quantiser = [](BitWriter& w) { w.Flag(false).Flag(false); };
    std::function<void(BitWriter&)> newpred = [](BitWriter& w) {
        w.Flag(false).Flag(false);
    };  // with reduced res.
    std::function<void(BitWriter&)> scalability = [](BitWriter& w) { w.Flag(false); };

    void Write(BitWriter& w) const {
        w.U(32, 0x120).Flag(false).U(8, 1).Flag(identifier);
        if (identifier) {
            w.U(4, verid).U(3, 1);
        }
        w.U(4, 1);
        control(w);
        w.U(2, shape);
        const bool verid1 = identifier && verid == 1;
        if (shape == 3 && !verid1) {
            w.U(4, 0);
        }
        w.Flag(true).U(16, resolution).Flag(true);
        fixedRate(w);
        if (shape == 0) {
            w.Flag(true).U(13, width).Flag(true).U(13, height).Flag(true);
        }
        w.Flag(interlaced).Flag(true);
        if (sprite) {
            sprite(w);
        } else {
            w.U(verid1 ? 1 : 2, 0);
        }
        if (!verid1 && shape != 0) {
            w.Flag(true);  // sadct_disable
        }
        quantiser(w);
        if (!verid1) {
            w.Flag(false);  // quarter_sample
        }
        w.Flag(true).Flag(true).Flag(false);  // complexity, resync, data partitioning
        if (!verid1) {
            newpred(w);
        }
        scalability(w);
    }

    Bytes Config() const {
        BitWriter w = Preamble();
        Write(w);
        return w.NextStartCode().Bytes();
    }
};

BitWriter Vop(unsigned int codingType, int incrementBits = 5, bool coded = true) {
    BitWriter w;
    w.U(32, 0x1B6).U(2, codingType).Bits("0 1").U(incrementBits, 3).Flag(true).Flag(coded);
    return w;
}

Bytes FrameBytes(BitWriter vop) {
    return vop.Flag(false).U(32, 0).Bytes();
}

MP4VESParser Configured(const Layer& layer) {
    MP4VESParser parser;
    std::string hex = Hex(layer.Config());
    EXPECT_TRUE(parser.TryParseString(hex));
    EXPECT_TRUE(parser.GetVideoObjectLayer().valid);
    return parser;
}

MediaPacket::Frametype FrameType(MP4VESParser& parser, const Bytes& frame, bool& valid) {
    Parse(parser, frame);
    return parser.GetFrameType(valid);
}

void ExpectSize(MP4VESParser& parser, unsigned int expectedWidth, unsigned int expectedHeight) {
    unsigned int width = 0;
    unsigned int height = 0;
    bool valid = false;
    parser.GetImageSize(width, height, valid);
    EXPECT_TRUE(valid);
    EXPECT_EQ(width, expectedWidth);
    EXPECT_EQ(height, expectedHeight);
}

void ExpectNoSize(MP4VESParser& parser) {
    unsigned int width = 3;
    unsigned int height = 4;
    bool valid = true;
    parser.GetImageSize(width, height, valid);
    EXPECT_FALSE(valid);
    EXPECT_EQ(width, 3U);
    EXPECT_EQ(height, 4U);
}

TEST(MP4VESParser, KnowsNothingAtFirst) {
    MP4VESParser parser;
    bool valid = true;
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    valid = true;
    EXPECT_EQ(parser.GetPixelFormat(valid), MediaPacket::kPixel420);
    EXPECT_FALSE(valid);
    ExpectNoSize(parser);
}

TEST(MP4VESParser, ConfigurationGivesSizeAndPixelFormat) {
    MP4VESParser parser = Configured(Layer());
    ExpectSize(parser, 640, 480);
    bool valid = false;
    EXPECT_EQ(parser.GetPixelFormat(valid), MediaPacket::kPixel420);
    EXPECT_TRUE(valid);
    EXPECT_TRUE(parser.GetVisualObjectSequence().valid);
    EXPECT_EQ(parser.GetVisualObjectSequence().profile_and_level_indication, 0xF5U);
    EXPECT_TRUE(parser.GetVisualObject().valid);
    EXPECT_EQ(parser.GetVisualObject().visual_object_verid, 1U);
    EXPECT_EQ(parser.GetVisualObject().video_object_start_code, 0x100U);
    EXPECT_EQ(parser.GetVideoObjectLayer().vop_time_increment_resolution, 25U);
}

TEST(MP4VESParser, FrameTypesOfARectangularLayer) {
    MP4VESParser parser = Configured(Layer());
    const MediaPacket::Frametype expected[] = {MediaPacket::kFrameI, MediaPacket::kFrameP,
                                               MediaPacket::kFrameB, MediaPacket::kFrameSprite};
    for (unsigned int type = 0; type < 4; ++type) {
        bool valid = false;
        EXPECT_EQ(FrameType(parser, FrameBytes(Vop(type)), valid), expected[type]);
        EXPECT_TRUE(valid) << type;
        EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, 3U);
    }
    EXPECT_EQ(static_cast<int>(MediaPacket::kFrameI), 1);
    EXPECT_EQ(static_cast<int>(MediaPacket::kFrameP), 3);
    EXPECT_EQ(static_cast<int>(MediaPacket::kFrameB), 2);
    EXPECT_EQ(static_cast<int>(MediaPacket::kFrameSprite), 4);
}

TEST(MP4VESParser, FrameTypeIsKnownWithoutALayerToo) {
    // Resolution 0: the time increment has no bits.
    MP4VESParser parser;
    bool valid = false;
    EXPECT_EQ(FrameType(parser, FrameBytes(Vop(1, 0)), valid), MediaPacket::kFrameP);
    EXPECT_TRUE(valid);
}

TEST(MP4VESParser, NotCodedVopHasNoFrameType) {
    MP4VESParser parser = Configured(Layer());
    bool valid = true;
    EXPECT_EQ(FrameType(parser, FrameBytes(Vop(1, 5, false)), valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    EXPECT_TRUE(parser.GetVideoObjectPlane().present);
}

TEST(MP4VESParser, BareLayerHeaderIsNotParsed) {
    BitWriter w;
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    ExpectNoSize(parser);
    EXPECT_FALSE(parser.GetVideoObjectLayer().present);
    bool valid = true;
    EXPECT_EQ(parser.GetPixelFormat(valid), MediaPacket::kPixel420);
    EXPECT_FALSE(valid);

    BitWriter object;
    object.U(32, 0x100);
    Layer().Write(object);
    Parse(parser, object.NextStartCode().Bytes());
    EXPECT_FALSE(parser.GetVideoObjectLayer().present);
}

TEST(MP4VESParser, ObjectHeaderWithoutASequenceIsParsed) {
    BitWriter w;
    w.U(32, 0x1B5).Flag(false).U(4, 1).Flag(false).NextStartCode().U(32, 0x11F);
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    ExpectSize(parser, 640, 480);
    EXPECT_FALSE(parser.GetVisualObjectSequence().present);
    EXPECT_EQ(parser.GetVisualObject().video_object_start_code, 0x11FU);
}

TEST(MP4VESParser, LayerStartCodesReachFrom0x120To0x12F) {
    for (unsigned int code = 0x11E; code <= 0x131; ++code) {
        BitWriter w = Preamble();
        BitWriter layer;
        Layer().Write(layer);
        Bytes bytes = layer.NextStartCode().Bytes();
        bytes[3] = static_cast<unsigned char>(code);
        for (const unsigned char byte : bytes) {
            w.U(8, byte);
        }
        MP4VESParser parser;
        Parse(parser, w.Bytes());
        EXPECT_EQ(parser.GetVideoObjectLayer().valid, code >= 0x120 && code <= 0x12F) << code;
    }
}

TEST(MP4VESParser, TimeIncrementHasTheBitsOfTheResolution) {
    const struct {
        unsigned int resolution;
        int bits;
    } cases[] = {{30'000, 15}, {16, 5}, {15, 4}, {25, 5}, {1, 1}, {2, 2}, {32'768, 16}, {65'535, 16}, {0, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(Access::NecessaryBits(c.resolution), c.bits) << c.resolution;
        Layer layer;
        layer.resolution = c.resolution;
        MP4VESParser parser = Configured(layer);
        BitWriter w;
        const unsigned int increment = 0x5555U & ((1U << static_cast<unsigned>(c.bits)) - 1U);
        w.U(32, 0x1B6).U(2, 2).Bits("1110 1").U(c.bits, increment).Bits("1 1 0").U(32, 0);
        bool valid = false;
        EXPECT_EQ(FrameType(parser, w.Bytes(), valid), MediaPacket::kFrameB) << c.resolution;
        EXPECT_TRUE(valid);
        EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, increment) << c.resolution;
        EXPECT_EQ(parser.GetVideoObjectPlane().modulo_time_base, 0U);
        EXPECT_EQ(Access::Position(parser), static_cast<unsigned int>(32 + 2 + 4 + 1 + c.bits + 2));
    }
    EXPECT_EQ(Access::NecessaryBits(0xFFFFFFFF), 32);
}

// 16 ticks per second: the standard writes 4 bits, 5 are read, and the marker is
// taken for a bit of the increment.
TEST(MP4VESParser, StandardStreamOfAPowerOfTwoResolutionIsShifted) {
    Layer layer;
    layer.resolution = 16;
    MP4VESParser parser = Configured(layer);
    bool valid = true;
    // marker, increment 0011, marker, vop_coded 1, vop_rounding_type 0: read as
    // increment 00111, marker 1, coded 0.
    EXPECT_EQ(FrameType(parser, FrameBytes(Vop(1, 4)), valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, 7U);
}

TEST(MP4VESParser, FixedVopTimeIncrementHasTheBitsOfTheResolution) {
    Layer layer;
    layer.resolution = 16;
    layer.fixedRate = [](BitWriter& w) { w.Flag(true).U(5, 21); };
    MP4VESParser parser = Configured(layer);
    EXPECT_EQ(parser.GetVideoObjectLayer().fixed_vop_rate, 1U);
    EXPECT_EQ(parser.GetVideoObjectLayer().fixed_vop_time_increment, 21U);
    ExpectSize(parser, 640, 480);
}

TEST(MP4VESParser, BareSequenceHeaderStoresTheProfileButIsNotValid) {
    MP4VESParser parser;
    std::string hex = "000001B0F5";
    EXPECT_TRUE(parser.TryParseString(hex));
    EXPECT_EQ(parser.GetVisualObjectSequence().profile_and_level_indication, 0xF5U);
    EXPECT_TRUE(parser.GetVisualObjectSequence().present);
    EXPECT_FALSE(parser.GetVisualObjectSequence().valid);
    EXPECT_FALSE(parser.GetVisualObject().present);
}

TEST(MP4VESParser, LayerHeaderThatNothingFollowsIsValid) {
    BitWriter w = Preamble();
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    ExpectSize(parser, 640, 480);
}

TEST(MP4VESParser, UserDataBehindTheSequenceHeaderIsSkipped) {
    BitWriter w;
    w.U(32, 0x1B0).U(8, 3).U(32, 0x1B2).U(32, 0xDEADBEEF).U(32, 0x1B2).U(8, 1);
    w.U(32, 0x1B5).Flag(false).U(4, 1).Flag(false).NextStartCode().U(32, 0x100);
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    EXPECT_TRUE(parser.GetVisualObjectSequence().valid);
    ExpectSize(parser, 640, 480);
}

TEST(MP4VESParser, UserDataBehindTheLayerIsSkippedUpToTheVop) {
    BitWriter w = Preamble();
    Layer().Write(w);
    w.NextStartCode()
        .U(32, 0x1B2)
        .U(24, 0x656E63)
        .U(32, 0x1B2)
        .U(32, 0x1B6)
        .U(2, 1)
        .Bits("0 1 00011 1 1 0")
        .U(32, 0);
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    ExpectSize(parser, 640, 480);
    bool valid = false;
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameP);
    EXPECT_TRUE(valid);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_start_code, 0x1B6U);
}

TEST(MP4VESParser, UserDataBehindTheObjectHeaderIsNotSkipped) {
    BitWriter w;
    w.U(32, 0x1B5).Flag(false).U(4, 1).Flag(false).NextStartCode();
    w.U(32, 0x1B2).U(32, 0x12345678).U(32, 0x100);
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    EXPECT_EQ(parser.GetVisualObject().video_object_start_code, 0x1B2U);
    ExpectNoSize(parser);
}

TEST(MP4VESParser, VideoSignalTypeIsNotParsed) {
    // video_signal_type 1, format 5, range 0, no colour description: one byte more than the parser reads.
    BitWriter w;
    w.U(32, 0x1B5).Flag(false).U(4, 1).Flag(true).U(3, 5).Flag(false).Flag(false).NextStartCode().U(32,
                                                                                                    0x100);
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    EXPECT_TRUE(parser.GetVisualObject().valid);
    EXPECT_NE(parser.GetVisualObject().video_object_start_code, 0x100U);
    ExpectNoSize(parser);
}

TEST(MP4VESParser, ObjectThatIsNoVideoHasNoLayer) {
    BitWriter w;
    w.U(32, 0x1B5).Flag(false).U(4, 2).Flag(false).NextStartCode().U(32, 0x100);
    Layer().Write(w);
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    EXPECT_TRUE(parser.GetVisualObject().valid);
    EXPECT_EQ(parser.GetVisualObject().visual_object_type, 2U);
    EXPECT_EQ(parser.GetVisualObject().video_object_start_code, 0U);
    ExpectNoSize(parser);
}

TEST(MP4VESParser, LayerWithoutIdentifierHasVerid0) {
    // Written by this parser's rule, verid 0 brings the fields of verid 2 and comes out right.
    Layer layer;
    layer.identifier = false;
    MP4VESParser parser = Configured(layer);
    EXPECT_EQ(parser.GetVideoObjectLayer().video_object_layer_verid, 0U);
    ExpectSize(parser, 640, 480);

    // A later layer without identifier keeps the verid of an earlier one.
    parser = Configured(Layer());
    BitWriter w;
    w.U(32, 0x1B5).Flag(false).U(4, 1).Flag(false).NextStartCode().U(32, 0x100);
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(false).U(4, 1).Flag(false).U(2, 0).Flag(true).U(16, 25).Flag(
        true);
    w.Flag(false)
        .Flag(true)
        .U(13, 320)
        .Flag(true)
        .U(13, 240)
        .Flag(true)
        .Bits("0 1 0 0 0 1 1 0 0")
        .NextStartCode();
    Parse(parser, w.Bytes());
    EXPECT_EQ(parser.GetVideoObjectLayer().video_object_layer_verid, 1U);
    ExpectSize(parser, 320, 240);
}

// The standard infers verid 1 for such a layer, which has fewer bits then. Read as here, the
// missing ones are taken from the stuffing and what follows it; where the data ends, the header
// counts as cut short and there is no size.
TEST(MP4VESParser, SimpleProfileLayerWithoutIdentifierMayHaveNoSize) {
    BitWriter w = Preamble();
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(false).U(4, 1).Flag(false).U(2, 0).Flag(true).U(16, 1000).Flag(
        true);
    w.Flag(false).Flag(true).U(13, 352).Flag(true).U(13, 288).Flag(true).Bits("0 1 0 0 0 1 1 0 0");
    ASSERT_EQ(w.BitCount() % 8, 2U);  // 6 bits of stuffing follow, fewer than are read
    MP4VESParser parser;
    Parse(parser, w.NextStartCode().Bytes());
    EXPECT_EQ(parser.GetVideoObjectLayer().video_object_layer_width, 352U);
    ExpectNoSize(parser);
    // Behind the stuffing a frame follows: the bits are there and the size comes out right.
    Parse(parser, w.U(32, 0x1B6).U(32, 0).Bytes());
    ExpectSize(parser, 352, 288);
}

TEST(MP4VESParser, ExtendedAspectRatioAndControlParameters) {
    Layer layer;
    layer.control = [](BitWriter& w) {
        w.Flag(true).U(2, 1).Flag(true).Flag(true);
        w.U(15, 1)
            .Flag(true)
            .U(15, 2)
            .Flag(true)
            .U(15, 3)
            .Flag(true)
            .U(3, 4)
            .U(11, 5)
            .Flag(true)
            .U(15, 6)
            .Flag(true);
    };
    MP4VESParser parser = Configured(layer);
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.vol_control_parameters, 1U);
    EXPECT_EQ(vol.chroma_format, 1U);
    EXPECT_EQ(vol.low_delay, 1U);
    EXPECT_EQ(vol.vbv_parameters, 1U);
    EXPECT_EQ(vol.first_half_bit_rate, 1U);
    EXPECT_EQ(vol.latter_half_bit_rate, 2U);
    EXPECT_EQ(vol.first_half_vbv_buffer_size, 3U);
    EXPECT_EQ(vol.latter_half_vbv_buffer_size, 4U);
    EXPECT_EQ(vol.first_half_vbv_occupancy, 5U);
    EXPECT_EQ(vol.latter_half_vbv_occupancy, 6U);
    ExpectSize(parser, 640, 480);

    BitWriter w = Preamble();
    w.U(32, 0x120).Flag(true).U(8, 17).Flag(true).U(4, 1).U(3, 5).U(4, 15).U(8, 12).U(8, 11);
    w.Flag(true).U(2, 1).Flag(false).Flag(false).U(2, 0).Flag(true).U(16, 25).Flag(true).Flag(false);
    w.Flag(true).U(13, 720).Flag(true).U(13, 576).Flag(true).Bits("1 1 0 0 0 1 1 0 0").NextStartCode();
    Parse(parser, w.Bytes());
    EXPECT_EQ(vol.random_accessible_vol, 1U);
    EXPECT_EQ(vol.video_object_type_indication, 17U);
    EXPECT_EQ(vol.video_object_layer_priority, 5U);
    EXPECT_EQ(vol.aspect_ratio_info, 15U);
    EXPECT_EQ(vol.par_width, 12U);
    EXPECT_EQ(vol.par_height, 11U);
    EXPECT_EQ(vol.vbv_parameters, 0U);
    EXPECT_EQ(vol.first_half_bit_rate, 1U);  // kept from before
    EXPECT_EQ(vol.interlaced, 1U);
    ExpectSize(parser, 720, 576);
}

TEST(MP4VESParser, GlobalMotionSpriteOfVerid2) {
    Layer layer;
    layer.verid = 2;
    layer.sprite = [](BitWriter& w) { w.U(2, 2).U(6, 3).U(2, 2).Flag(true); };
    MP4VESParser parser = Configured(layer);
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.sprite_enable, 2U);
    EXPECT_EQ(vol.no_of_sprite_warping_points, 3U);
    EXPECT_EQ(vol.sprite_warping_accuracy, 2U);
    EXPECT_EQ(vol.sprite_brightness_change, 1U);
    EXPECT_EQ(vol.complexity_estimation_disable, 1U);
    bool valid = false;
    // An S-VOP with global motion has a rounding type.
    EXPECT_EQ(FrameType(parser, Vop(3).Flag(true).U(32, 0).Bytes(), valid), MediaPacket::kFrameSprite);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_rounding_type, 1U);
}

TEST(MP4VESParser, StaticSpriteReadsAVopOfItsOwn) {
    Layer layer;
    layer.sprite = [](BitWriter& w) {
        w.U(1, 1);
        w.U(13, 1000).Flag(true).U(13, 500).Flag(true).U(13, 8).Flag(true).U(13, 9).Flag(true);
        w.U(6, 2).U(2, 1).Flag(false).Flag(false);
    };
    BitWriter w = Preamble();
    layer.Write(w);
    w.NextStartCode();
    BitWriter twoVops;
    twoVops.U(32, 0x1B6)
        .Bits("00 0 1 00001 1 0")
        .NextStartCode()
        .U(32, 0x1B6)
        .Bits("01 0 1 00010 1 1 1")
        .U(32, 0);
    for (const unsigned char byte : twoVops.Bytes()) {
        w.U(8, byte);
    }
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.sprite_width, 1000U);
    EXPECT_EQ(vol.sprite_height, 500U);
    EXPECT_EQ(vol.sprite_left_coordinate, 8U);
    EXPECT_EQ(vol.sprite_top_coordinate, 9U);
    EXPECT_EQ(vol.low_latency_sprite_enable, 0U);
    // The sprite's VOP is not coded, which ends on a byte boundary; the loop reads the second.
    bool valid = false;
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameP);
    EXPECT_TRUE(valid);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, 2U);
}

TEST(MP4VESParser, QuantiserMatricesAreNotRead) {
    Layer layer;
    layer.quantiser = [](BitWriter& w) { w.Flag(true).U(4, 5).U(4, 8).Flag(true).Flag(false).Flag(true); };
    MP4VESParser parser = Configured(layer);
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.not_8_bit, 1U);
    EXPECT_EQ(vol.quant_precision, 5U);
    EXPECT_EQ(vol.bits_per_pixel, 8U);
    EXPECT_EQ(vol.quant_type, 1U);
    EXPECT_EQ(vol.load_intra_quant_mat, 0U);
    EXPECT_EQ(vol.load_nonintra_quant_mat, 1U);
    // No matrix between the flag and the bits behind it.
    EXPECT_EQ(vol.complexity_estimation_disable, 1U);
    EXPECT_EQ(vol.resync_marker_disable, 1U);
    EXPECT_EQ(vol.data_partitioned, 0U);
    ExpectSize(parser, 640, 480);
}

TEST(MP4VESParser, ComplexityEstimationHeaderIsNotParsed) {
    BitWriter w = Preamble();
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(true).U(4, 1).U(3, 1).U(4, 1).Flag(false).U(2, 0).Flag(true).U(
        16, 25);
    w.Flag(true).Flag(false).Flag(true).U(13, 64).Flag(true).U(13, 48).Flag(true).Bits("0 1 0 0 0");
    w.Flag(false).Bits("0 1 1 0 0").U(32, 0);  // estimation method 0 follows in the standard
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.complexity_estimation_disable, 0U);
    EXPECT_EQ(vol.resync_marker_disable, 0U);
    EXPECT_EQ(vol.data_partitioned, 1U);
    EXPECT_EQ(vol.reversible_vlc, 1U);
    EXPECT_EQ(vol.scalability, 0U);
}

TEST(MP4VESParser, ScalabilityOfARectangularLayer) {
    Layer layer;
    layer.scalability = [](BitWriter& w) {
        w.Flag(true).Flag(true).U(4, 9).Flag(true).U(5, 1).U(5, 2).U(5, 3).U(5, 4).Flag(true);
    };
    MP4VESParser parser = Configured(layer);
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.scalability, 1U);
    EXPECT_EQ(vol.hierarchy_type, 1U);
    EXPECT_EQ(vol.ref_layer_id, 9U);
    EXPECT_EQ(vol.ref_layer_sampling_direc, 1U);
    EXPECT_EQ(vol.hor_sampling_factor_n, 1U);
    EXPECT_EQ(vol.hor_sampling_factor_m, 2U);
    EXPECT_EQ(vol.vert_sampling_factor_n, 3U);
    EXPECT_EQ(vol.vert_sampling_factor_m, 4U);
    EXPECT_EQ(vol.enhancement_type, 1U);
    EXPECT_EQ(vol.shape_hor_sampling_factor_n, 0U);
}

TEST(MP4VESParser, BinaryShapeHasAShapedVop) {
    Layer layer;
    layer.shape = 1;
    layer.verid = 2;
    layer.scalability = [](BitWriter& w) {
        w.Flag(true).Flag(false).U(4, 1).Flag(false).U(5, 1).U(5, 1).U(5, 1).U(5, 1).Flag(true);
        w.Flag(true).Flag(false).U(5, 11).U(5, 12).U(5, 13).U(5, 14);
    };
    MP4VESParser parser = Configured(layer);
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_EQ(vol.video_object_layer_shape, 1U);
    EXPECT_EQ(vol.sadct_disable, 1U);
    EXPECT_EQ(vol.use_ref_shape, 1U);
    EXPECT_EQ(vol.use_ref_texture, 0U);
    EXPECT_EQ(vol.shape_hor_sampling_factor_n, 11U);
    EXPECT_EQ(vol.shape_hor_sampling_factor_m, 12U);
    EXPECT_EQ(vol.shape_vert_sampling_factor_n, 13U);
    EXPECT_EQ(vol.shape_vert_sampling_factor_m, 14U);
    EXPECT_EQ(vol.video_object_layer_width, 0U);

    BitWriter frame = Vop(1);
    frame.Flag(true);  // rounding
    frame.U(13, 100).Flag(true).U(13, 80).Flag(true).U(13, 4).Flag(true).U(13, 6).Flag(true);
    frame.Flag(true).Flag(true).Flag(true).U(8, 200);
    bool valid = false;
    EXPECT_EQ(FrameType(parser, frame.Bytes(), valid), MediaPacket::kFrameP);
    EXPECT_TRUE(valid);
    const auto& vop = parser.GetVideoObjectPlane();
    EXPECT_EQ(vop.vop_width, 100U);
    EXPECT_EQ(vop.vop_height, 80U);
    EXPECT_EQ(vop.vop_horizontal_mc_spatial_ref, 4U);
    EXPECT_EQ(vop.vop_vertical_mc_spatial_ref, 6U);
    EXPECT_EQ(vop.background_composition, 1U);
    EXPECT_EQ(vop.change_conv_ratio_disable, 1U);
    EXPECT_EQ(vop.vop_constant_alpha, 1U);
    EXPECT_EQ(vop.vop_constant_alpha_value, 200U);
}

TEST(MP4VESParser, GrayscaleShapeOfVerid2HasAnExtension) {
    BitWriter w = Preamble();
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(true).U(4, 2).U(3, 1).U(4, 1).Flag(false).U(2, 3).U(4, 7);
    w.Flag(true).U(16, 25).Flag(true).Flag(false);
    w.Bits("0 1 00 1 0 1 0 1 1 1 1 1 1 1 0 0 0 0").NextStartCode();
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_TRUE(vol.valid);
    EXPECT_EQ(vol.video_object_layer_shape_extension, 7U);
    EXPECT_EQ(vol.sadct_disable, 1U);
    EXPECT_EQ(vol.no_gray_quant_update, 1U);
    EXPECT_EQ(vol.composition_method, 0U);
    EXPECT_EQ(vol.linear_composition, 1U);
    EXPECT_EQ(vol.quant_type, 1U);
    EXPECT_EQ(vol.load_intra_quant_mat, 1U);
    EXPECT_EQ(vol.load_nonintra_quant_mat, 1U);
    EXPECT_EQ(vol.load_intra_quant_mat_grayscale, 0U);
    EXPECT_EQ(vol.quarter_sample, 1U);
    EXPECT_EQ(vol.complexity_estimation_disable, 1U);
    EXPECT_EQ(vol.resync_marker_disable, 1U);
    EXPECT_EQ(vol.data_partitioned, 0U);
    EXPECT_EQ(vol.newpred_enable, 0U);
}

TEST(MP4VESParser, BinaryOnlyShapeHasNoTexture) {
    BitWriter w = Preamble();
    w.U(32, 0x120).Flag(false).U(8, 1).Flag(true).U(4, 2).U(3, 1).U(4, 1).Flag(false).U(2, 2);
    w.Flag(true).U(16, 25).Flag(true).Flag(false);
    w.Flag(true).U(4, 3).U(5, 1).U(5, 2).U(5, 3).U(5, 4).Flag(true).NextStartCode();
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    const auto& vol = parser.GetVideoObjectLayer();
    EXPECT_TRUE(vol.valid);
    EXPECT_EQ(vol.scalability, 1U);
    EXPECT_EQ(vol.ref_layer_id, 3U);
    EXPECT_EQ(vol.shape_vert_sampling_factor_m, 4U);
    EXPECT_EQ(vol.resync_marker_disable, 1U);
    EXPECT_EQ(vol.obmc_disable, 0U);

    // A P-VOP has neither rounding type nor background composition.
    BitWriter frame = Vop(1);
    frame.U(13, 10).Flag(true).U(13, 20).Flag(true).U(13, 0).Flag(true).U(13, 0).Flag(true).Flag(true).Flag(
        false);
    bool valid = false;
    EXPECT_EQ(FrameType(parser, frame.Bytes(), valid), MediaPacket::kFrameP);
    EXPECT_TRUE(valid);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_width, 10U);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_height, 20U);
    EXPECT_EQ(parser.GetVideoObjectPlane().change_conv_ratio_disable, 1U);
}

TEST(MP4VESParser, NewpredMarkerOnlyBehindAPredictionId) {
    Layer layer;
    layer.verid = 2;
    layer.newpred = [](BitWriter& w) { w.Flag(true).U(2, 2).Flag(true).Flag(true); };
    MP4VESParser parser = Configured(layer);
    EXPECT_EQ(parser.GetVideoObjectLayer().newpred_enable, 1U);
    EXPECT_EQ(parser.GetVideoObjectLayer().requested_upstream_message_type, 2U);
    EXPECT_EQ(parser.GetVideoObjectLayer().newpred_segment_type, 1U);
    EXPECT_EQ(parser.GetVideoObjectLayer().reduced_resolution_vop_enable, 1U);

    // 5 + 3 bits of id; then the rounding type and, for I and P, the reduced resolution.
    Parse(parser, Vop(1).U(8, 0xA5).Flag(true).U(8, 0x3C).Flag(true).Flag(false).Flag(true).U(32, 0).Bytes());
    const auto& vop = parser.GetVideoObjectPlane();
    EXPECT_EQ(vop.vop_id, 0xA5U);
    EXPECT_EQ(vop.vop_id_for_prediction_indication, 1U);
    EXPECT_EQ(vop.vop_id_for_prediction, 0x3CU);
    EXPECT_EQ(vop.vop_rounding_type, 0U);
    EXPECT_EQ(vop.vop_reduced_resolution, 1U);

    Parse(parser, Vop(1).U(8, 0x5A).Flag(false).Flag(true).Flag(false).U(32, 0xFFFFFFFF).Bytes());
    EXPECT_EQ(vop.vop_id, 0x5AU);
    EXPECT_EQ(vop.vop_id_for_prediction, 0x3CU);  // kept
    EXPECT_EQ(vop.vop_rounding_type, 1U);
    EXPECT_EQ(vop.vop_reduced_resolution, 0U);

    // B and S end before the reduced resolution.
    const BitWriter b = Vop(2).U(8, 1).Flag(false);
    Parse(parser, b.Bytes());
    EXPECT_TRUE(vop.valid);
    EXPECT_EQ(Access::Position(parser), b.BitCount());
}

TEST(MP4VESParser, PredictionIdsHaveAtMost15Bits) {
    Layer layer;
    layer.verid = 2;
    layer.resolution = 30'000;
    layer.newpred = [](BitWriter& w) { w.Flag(true).U(2, 0).Flag(false).Flag(false); };
    MP4VESParser parser = Configured(layer);
    Parse(parser, Vop(0, 15).U(15, 0x7ABC).Flag(true).U(15, 0x1234).Flag(true).U(32, 0).Bytes());
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_id, 0x7ABCU);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_id_for_prediction, 0x1234U);
}

TEST(MP4VESParser, RectangularVopHeaderEndsEarly) {
    MP4VESParser parser = Configured(Layer());
    const BitWriter intra = Vop(0);
    Parse(parser, intra.Bytes());
    EXPECT_EQ(Access::Position(parser), intra.BitCount());
    const BitWriter predicted = Vop(1).Flag(true);
    Parse(parser, predicted.Bytes());
    EXPECT_EQ(Access::Position(parser), predicted.BitCount());
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_rounding_type, 1U);
}

TEST(MP4VESParser, GroupOfVopHeaderIsNotEntered) {
    MP4VESParser parser = Configured(Layer());
    BitWriter w;
    w.U(32, 0x1B3).U(18, 0x1000).Flag(true).Flag(false).NextStartCode();
    const std::size_t vopAt = w.Bytes().size();
    w.U(32, 0x1B6).Bits("00 0 1 00000 1 1").U(32, 0);
    Bytes frame = w.Bytes();
    bool valid = true;
    EXPECT_EQ(FrameType(parser, frame, valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    // From the VOP on it is a key frame.
    frame.erase(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(vopAt));
    EXPECT_EQ(FrameType(parser, frame, valid), MediaPacket::kFrameI);
    EXPECT_TRUE(valid);
}

TEST(MP4VESParser, GroupOfVopHeaderBehindALayerIsReadAsAVop) {
    BitWriter w = Preamble();
    Layer().Write(w);
    w.NextStartCode().U(32, 0x1B3).Bits("10 0 1 00110 1 1").U(32, 0);
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_start_code, 0x1B3U);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, 6U);
    bool valid = false;
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameB);
    EXPECT_TRUE(valid);
}

TEST(MP4VESParser, AnyStartCodeBehindALayerIsReadAsAVop) {
    BitWriter w = Preamble();
    Layer().Write(w);
    w.NextStartCode().U(32, 0x1B1).U(32, 0);  // the end of the sequence
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_start_code, 0x1B1U);
    ExpectSize(parser, 640, 480);
}

TEST(MP4VESParser, StuffingIsSkippedBehindAShapedVop) {
    Layer layer;
    layer.shape = 1;
    BitWriter w = Preamble();
    layer.Write(w);
    w.NextStartCode().U(32, 0x1B6).Bits("00 0 1 00001 1 0").NextStartCode();
    w.U(32, 0x1C3).U(24, 0xFFFFFF).U(32, 0x1B6).Bits("01 0 1 00010 1 0").NextStartCode();
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    EXPECT_EQ(parser.GetVideoObjectLayer().stuffing_start_code, 0x1C3U);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_coding_type, 1U);

    layer.shape = 0;
    BitWriter rectangular = Preamble();
    layer.Write(rectangular);
    rectangular.NextStartCode().U(32, 0x1B6).Bits("00 0 1 00001 1 0").NextStartCode();
    rectangular.U(32, 0x1C3).U(24, 0xFFFFFF).U(32, 0x1B6).Bits("01 0 1 00010 1 0").NextStartCode();
    MP4VESParser other;
    Parse(other, rectangular.Bytes());
    EXPECT_EQ(other.GetVideoObjectLayer().stuffing_start_code, 0U);
    EXPECT_EQ(other.GetVideoObjectPlane().vop_coding_type, 0U);
}

TEST(MP4VESParser, EachParseClearsTheValidFlagsAndKeepsTheFields) {
    MP4VESParser parser = Configured(Layer());
    Parse(parser, FrameBytes(Vop(0)));
    ExpectNoSize(parser);
    EXPECT_TRUE(parser.GetVideoObjectLayer().present);
    EXPECT_EQ(parser.GetVideoObjectLayer().video_object_layer_width, 640U);
    Parse(parser, {});
    bool valid = true;
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    EXPECT_TRUE(parser.GetVideoObjectPlane().present);
    Parse(parser, FrameBytes(Vop(2)));
    EXPECT_EQ(parser.GetFrameType(valid), MediaPacket::kFrameB);
}

TEST(MP4VESParser, ConfigurationCutShortAnywhereNeverGivesAWrongSize) {
    for (const unsigned int verid : {1U, 2U}) {
        Layer layer;
        layer.verid = verid;
        BitWriter w = Preamble();
        layer.Write(w);
        const Bytes whole = w.Bytes();
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            MP4VESParser parser;
            Parse(parser, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            if (size * 8 >= w.BitCount()) {
                ExpectSize(parser, 640, 480);
            } else {
                ExpectNoSize(parser);
            }
        }
    }
}

TEST(MP4VESParser, FrameCutShortHasNoFrameType) {
    MP4VESParser parser = Configured(Layer());
    const BitWriter w = Vop(1).Flag(true);
    const Bytes whole = w.Bytes();
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        bool valid = false;
        FrameType(parser, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), valid);
        EXPECT_EQ(valid, size * 8 >= w.BitCount()) << size;
    }
}

TEST(MP4VESParser, EndlessModuloTimeBaseEndsWithTheData) {
    Bytes frame(1'000'000, 0xFF);
    frame[0] = 0;
    frame[1] = 0;
    frame[2] = 1;
    frame[3] = 0xB6;
    MP4VESParser parser = Configured(Layer());
    bool valid = true;
    EXPECT_EQ(FrameType(parser, frame, valid), MediaPacket::kFrameUnknown);
    EXPECT_FALSE(valid);
    EXPECT_EQ(parser.GetVideoObjectPlane().modulo_time_base, kAllOnes);
}

TEST(MP4VESParser, EndlessUserDataAndVopsEndWithTheData) {
    BitWriter w = Preamble();
    Layer().Write(w);
    w.NextStartCode();
    for (int i = 0; i < 100'000; ++i) {
        w.U(32, 0x1B2);
    }
    for (int i = 0; i < 100'000; ++i) {
        w.U(32, 0x1B6).Bits("00 0 1 00001 1 0").NextStartCode();
    }
    MP4VESParser parser;
    Parse(parser, w.Bytes());
    ExpectSize(parser, 640, 480);
    EXPECT_EQ(parser.GetVideoObjectPlane().vop_time_increment, 1U);
    EXPECT_FALSE(parser.GetVideoObjectPlane().valid);
}

TEST(MP4VESParser, NoDataIsNoHeader) {
    MP4VESParser parser;
    EXPECT_TRUE(parser.TryParse(nullptr, 0));
    EXPECT_TRUE(parser.TryParse(nullptr, 1000));
    std::string empty;
    EXPECT_TRUE(parser.TryParseString(empty));
    std::string one = "0";
    EXPECT_TRUE(parser.TryParseString(one));
    EXPECT_FALSE(parser.GetVisualObjectSequence().present);
}

TEST(MP4VESParser, HexPairsAreReadAsStrtolReadsThem) {
    const struct {
        const char* pair;
        unsigned int byte;
    } cases[] = {{"F5", 0xF5}, {"f5", 0xF5}, {"aB", 0xAB},  {"A ", 0x0A},  {"Ag", 0x0A}, {"gA", 0x00},
                 {"  ", 0x00}, {" A", 0x0A}, {"\tA", 0x0A}, {"\vA", 0x0A}, {"+A", 0x0A}, {"-A", 0xF6},
                 {"-1", 0xFF}, {"-0", 0x00}, {"--", 0x00},  {" -", 0x00},  {"0x", 0x00}, {"x0", 0x00},
                 {"9:", 0x09}, {"/1", 0x00}, {"@1", 0x00},  {"1G", 0x01},  {"`a", 0x00}};
    for (const auto& c : cases) {
        MP4VESParser parser;
        std::string hex = std::string("000001B0") + c.pair;
        parser.TryParseString(hex);
        EXPECT_EQ(parser.GetVisualObjectSequence().profile_and_level_indication, c.byte)
            << '"' << c.pair << '"';
        EXPECT_EQ(hex, std::string("000001B0") + c.pair);
    }
    MP4VESParser parser;
    std::string zero("000001B0\0A", 10);
    parser.TryParseString(zero);
    EXPECT_EQ(parser.GetVisualObjectSequence().profile_and_level_indication, 0U);
    std::string odd = "000001B0F5A";
    parser.TryParseString(odd);
    EXPECT_EQ(parser.GetVisualObjectSequence().profile_and_level_indication, 0xF5U);
}

TEST(MP4VESParser, CopiesOutliveTheirOriginalAndGoTheirOwnWay) {
    auto original = std::make_unique<MP4VESParser>(Configured(Layer()));
    MP4VESParser copy(*original);
    MP4VESParser assigned;
    assigned = *original;
    assigned = *&assigned;
    EXPECT_NE(Access::Buffer(copy), Access::Buffer(*original));
    EXPECT_NE(Access::Buffer(assigned), Access::Buffer(*original));
    EXPECT_EQ(Access::Position(copy), Access::Position(*original));
    original.reset();
    ExpectSize(copy, 640, 480);
    bool valid = false;
    EXPECT_EQ(FrameType(copy, FrameBytes(Vop(1)), valid), MediaPacket::kFrameP);
    ExpectSize(assigned, 640, 480);
}

}  // namespace
}  // namespace camclock
