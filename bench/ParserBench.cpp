#include "Check.h"
#include "Measure.h"
#include "plain/PlainParsers.h"
#include "support/Base64.h"
#include "support/H264Headers.h"

#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#if defined(CAMCLOCK_BENCH_GSTREAMER)
#define GST_USE_UNSTABLE_API  // its parsers have never been declared stable
#include <gst/codecparsers/gsth264parser.h>
#include <gst/codecparsers/gstmpeg4parser.h>
#include <gst/gst.h>
#endif
#if defined(CAMCLOCK_BENCH_AVCODEC)
extern "C" {
#include <libavutil/base64.h>
}
#endif
#if defined(CAMCLOCK_BENCH_BOOST)
#include <boost/algorithm/hex.hpp>
#endif

namespace camclock::bench {
namespace {

constexpr int kIterations = 200'000;
using Bytes = std::vector<unsigned char>;

// Written by x264: 1920 x 1080, High profile, with VUI; and its picture parameter set.
const std::string kSpsHex = "67640028acd940780227e5c044000003000400000300c83c60c658";
const std::string kPpsHex = "68ebe3cb22c0";
// Written by FFmpeg's MPEG-4 encoder: 640 x 480, Simple Profile.
const std::string kMpeg4Hex =
    "000001B001000001B58913000001000000012000C48D8800CD14043C1443000001B24C61766335392E33372E313030";
const std::string kVopHex = "000001b650f023ff0ada7ef8";

/// Every scaling list present, with many small deltas.
Bytes SpsWithScalingMatrix() {
    testing::SpsFields sps = testing::FullHdSps();
    sps.seq_scaling_matrix_present_flag = true;
    for (int list = 0; list < 8; ++list)
        sps.scalingLists.emplace_back(list < 6 ? 16 : 1, list % 3 + 1);
    return sps.Bytes();
}

unsigned int Size(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

// ---- sequence parameter set
// -----------------------------------------------------------------------------------------

void Sps(benchmark::State& state, Bytes bytes) {
    ParameterSetParser parser;
    SPSset sps;
    Measure(state, [&] {
        parser.ParseSPS(bytes.data(), Size(bytes), sps);
        benchmark::DoNotOptimize(sps.valid);
    });
}
BENCHMARK_CAPTURE(Sps, vui, PlainHex(kSpsHex))->Name("sps_1080p_vui/camclock")->Iterations(kIterations);
BENCHMARK_CAPTURE(Sps, matrix, SpsWithScalingMatrix())
    ->Name("sps_scaling_matrix/camclock")
    ->Iterations(kIterations);

void PlainSpsBench(benchmark::State& state, const Bytes& bytes) {
    Measure(state, [&] { benchmark::DoNotOptimize(PlainParseSps(bytes.data(), bytes.size())); });
}
BENCHMARK_CAPTURE(PlainSpsBench, vui, PlainHex(kSpsHex))
    ->Name("sps_1080p_vui/plain")
    ->Iterations(kIterations);
BENCHMARK_CAPTURE(PlainSpsBench, matrix, SpsWithScalingMatrix())
    ->Name("sps_scaling_matrix/plain")
    ->Iterations(kIterations);

// ---- picture parameter set
// ------------------------------------------------------------------------------------------

void Pps(benchmark::State& state) {
    Bytes bytes = PlainHex(kPpsHex);
    ParameterSetParser parser;
    PPSset pps;
    Measure(state, [&] {
        parser.ParsePPS(bytes.data(), Size(bytes), pps);
        benchmark::DoNotOptimize(pps.valid);
    });
}
BENCHMARK(Pps)->Name("pps/camclock")->Iterations(kIterations);

void PlainPpsBench(benchmark::State& state) {
    const Bytes bytes = PlainHex(kPpsHex);
    Measure(state, [&] { benchmark::DoNotOptimize(PlainParsePps(bytes.data(), bytes.size())); });
}
BENCHMARK(PlainPpsBench)->Name("pps/plain")->Iterations(kIterations);

// ---- the whole text of the SDP
// --------------------------------------------------------------------------------------

std::string SpropText() {
    return testing::EncodeBase64(PlainHex(kSpsHex)) + "," + testing::EncodeBase64(PlainHex(kPpsHex));
}

void Sprop(benchmark::State& state) {
    const std::string text = SpropText();
    ParameterSetParser parser;
    Measure(state, [&] {
        std::string sprops = text;
        parser.SetSpropsString(sprops);
        benchmark::DoNotOptimize(parser.GetPixelFormat());
    });
}
BENCHMARK(Sprop)->Name("sprop_text/camclock")->Iterations(kIterations);

void PlainSprop(benchmark::State& state) {
    const std::string text = SpropText();
    Measure(state, [&] {
        const std::string sprops = text;
        const std::size_t comma = sprops.find(',');
        const Bytes sps = PlainBase64(sprops.substr(0, comma));
        const Bytes pps = PlainBase64(sprops.substr(comma + 1));
        benchmark::DoNotOptimize(PlainParseSps(sps.data(), sps.size()));
        benchmark::DoNotOptimize(PlainParsePps(pps.data(), pps.size()));
    });
}
BENCHMARK(PlainSprop)->Name("sprop_text/plain")->Iterations(kIterations);

// ---- MPEG-4 Visual
// --------------------------------------------------------------------------------------------------

void Mpeg4Config(benchmark::State& state) {
    Bytes bytes = PlainHex(kMpeg4Hex);
    MP4VESParser parser;
    Measure(state, [&] { benchmark::DoNotOptimize(parser.TryParse(bytes.data(), Size(bytes))); });
}
BENCHMARK(Mpeg4Config)->Name("mpeg4_config/camclock")->Iterations(kIterations);

void PlainMpeg4Config(benchmark::State& state) {
    const Bytes bytes = PlainHex(kMpeg4Hex);
    Measure(state, [&] { benchmark::DoNotOptimize(PlainParseMpeg4Config(bytes.data(), bytes.size())); });
}
BENCHMARK(PlainMpeg4Config)->Name("mpeg4_config/plain")->Iterations(kIterations);

void Mpeg4Vop(benchmark::State& state) {
    Bytes config = PlainHex(kMpeg4Hex);
    Bytes vop = PlainHex(kVopHex);
    MP4VESParser parser;
    parser.TryParse(config.data(), Size(config));
    Measure(state, [&] { benchmark::DoNotOptimize(parser.TryParse(vop.data(), Size(vop))); });
}
BENCHMARK(Mpeg4Vop)->Name("mpeg4_vop/camclock")->Iterations(kIterations);

void PlainMpeg4Vop(benchmark::State& state) {
    const Bytes config = PlainHex(kMpeg4Hex);
    const Bytes vop = PlainHex(kVopHex);
    PlainMpeg4 headers = PlainParseMpeg4Config(config.data(), config.size());
    Measure(state, [&] {
        PlainBits bits(vop.data(), vop.size());
        PlainParseVop(bits, headers);
        benchmark::DoNotOptimize(headers.codingType);
    });
}
BENCHMARK(PlainMpeg4Vop)->Name("mpeg4_vop/plain")->Iterations(kIterations);

void Mpeg4HexText(benchmark::State& state) {
    MP4VESParser parser;
    std::string text = kMpeg4Hex;
    Measure(state, [&] { benchmark::DoNotOptimize(parser.TryParseString(text)); });
}
BENCHMARK(Mpeg4HexText)->Name("mpeg4_hex_text/camclock")->Iterations(kIterations);

void PlainMpeg4HexText(benchmark::State& state) {
    Measure(state, [&] {
        const Bytes bytes = PlainHex(kMpeg4Hex);
        benchmark::DoNotOptimize(PlainParseMpeg4Config(bytes.data(), bytes.size()));
    });
}
BENCHMARK(PlainMpeg4HexText)->Name("mpeg4_hex_text/plain")->Iterations(kIterations);

// ---- peers
// ----------------------------------------------------------------------------------------------------------

#if defined(CAMCLOCK_BENCH_GSTREAMER)
void GstSps(benchmark::State& state, const Bytes& bytes) {
    gst_init(nullptr, nullptr);
    Bytes framed = {0, 0, 0, 1};
    framed.insert(framed.end(), bytes.begin(), bytes.end());
    GstH264NalParser* const parser = gst_h264_nal_parser_new();
    GstH264NalUnit unit{};
    gst_h264_parser_identify_nalu_unchecked(parser, framed.data(), 0, framed.size(), &unit);
    Measure(state, [&] {
        GstH264SPS sps;
        benchmark::DoNotOptimize(gst_h264_parse_sps(&unit, &sps));
        gst_h264_sps_clear(&sps);
    });
    gst_h264_nal_parser_free(parser);
}
BENCHMARK_CAPTURE(GstSps, vui, PlainHex(kSpsHex))->Name("sps_1080p_vui/gstreamer")->Iterations(kIterations);
BENCHMARK_CAPTURE(GstSps, matrix, SpsWithScalingMatrix())
    ->Name("sps_scaling_matrix/gstreamer")
    ->Iterations(kIterations);

void GstPps(benchmark::State& state) {
    gst_init(nullptr, nullptr);
    Bytes stream = {0, 0, 0, 1};
    const Bytes sps = PlainHex(kSpsHex);
    stream.insert(stream.end(), sps.begin(), sps.end());
    const std::size_t start = stream.size();
    stream.insert(stream.end(), {0, 0, 0, 1});
    const Bytes pps = PlainHex(kPpsHex);
    stream.insert(stream.end(), pps.begin(), pps.end());
    GstH264NalParser* const parser = gst_h264_nal_parser_new();
    GstH264NalUnit unit{};
    gst_h264_parser_identify_nalu(parser, stream.data(), 0, stream.size(), &unit);
    GstH264SPS parsedSps;
    gst_h264_parser_parse_sps(parser, &unit, &parsedSps);
    gst_h264_parser_identify_nalu_unchecked(parser, stream.data(), static_cast<guint>(start), stream.size(),
                                            &unit);
    Measure(state, [&] {
        GstH264PPS parsed;
        benchmark::DoNotOptimize(gst_h264_parse_pps(parser, &unit, &parsed));
        gst_h264_pps_clear(&parsed);
    });
    gst_h264_sps_clear(&parsedSps);
    gst_h264_nal_parser_free(parser);
}
BENCHMARK(GstPps)->Name("pps/gstreamer")->Iterations(kIterations);

/// The layer header alone; its caller has found the start codes before.
void GstMpeg4Layer(benchmark::State& state) {
    const Bytes bytes = PlainHex(kMpeg4Hex.substr(kMpeg4Hex.find("00000120")));
    Measure(state, [&] {
        GstMpeg4VideoObjectLayer layer{};
        benchmark::DoNotOptimize(
            gst_mpeg4_parse_video_object_layer(&layer, nullptr, bytes.data() + 3, bytes.size() - 3));
    });
}
BENCHMARK(GstMpeg4Layer)->Name("mpeg4_config/gstreamer_layer_only")->Iterations(kIterations);
#endif

#if defined(CAMCLOCK_BENCH_AVCODEC)
/// The decoding of the text alone, without a parser.
void FfmpegBase64(benchmark::State& state) {
    const std::string text = SpropText();
    const std::string sps = text.substr(0, text.find(','));
    const std::string pps = text.substr(text.find(',') + 1);
    std::uint8_t out[2'048];
    Measure(state, [&] {
        benchmark::DoNotOptimize(av_base64_decode(out, sps.c_str(), sizeof out));
        benchmark::DoNotOptimize(av_base64_decode(out, pps.c_str(), sizeof out));
    });
}
BENCHMARK(FfmpegBase64)->Name("sprop_text/ffmpeg_base64_only")->Iterations(kIterations);
#endif

#if defined(CAMCLOCK_BENCH_BOOST)
void BoostHex(benchmark::State& state) {
    Bytes bytes;
    Measure(state, [&] {
        bytes.clear();
        boost::algorithm::unhex(kMpeg4Hex, std::back_inserter(bytes));
        benchmark::DoNotOptimize(bytes.data());
    });
}
BENCHMARK(BoostHex)->Name("mpeg4_hex_text/boost_unhex_only")->Iterations(kIterations);
#endif

// ---- proofs
// ---------------------------------------------------------------------------------------------------------

std::string SpsVariantsAgree() {
    for (Bytes bytes : {PlainHex(kSpsHex), SpsWithScalingMatrix()}) {
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut));
            ParameterSetParser parser;
            SPSset sps;
            parser.ParseSPS(part.data(), Size(part), sps);
            parser.SetSPSArray(part.data(), Size(part));
            const PlainSps plain = PlainParseSps(part.data(), part.size());
            unsigned int width = 0;
            unsigned int height = 0;
            parser.GetImageSize(width, height);
            if (sps.valid != plain.valid ||
                (sps.valid && (width != plain.width || height != plain.height ||
                               sps.profile_idc != plain.profile || sps.chroma_format_idc != plain.chroma)))
                return "cut after " + std::to_string(cut) + " bytes";
        }
    }
    return {};
}
const RegisterCheck spsVariantsAgree("sps", SpsVariantsAgree);

std::string TextVariantsAgree() {
    std::string text = SpropText();
    ParameterSetParser parser;
    parser.SetSpropsString(text);
    const Bytes pps = PlainHex(kPpsHex);
    const PlainPps plain = PlainParsePps(pps.data(), pps.size());
    const PPSset& ours = parser.GetPPS();
    unsigned int width = 0;
    unsigned int height = 0;
    parser.GetImageSize(width, height);
    const bool same = width == 1920 && height == 1080 && ours.valid == plain.valid &&
                      ours.num_ref_idx_l0_default_active_minus1 == plain.l0 &&
                      ours.pic_init_qp_minus26 == plain.qp && ours.entropy_coding_mode_flag == plain.entropy;
    return same ? "" : "fields";
}
const RegisterCheck textVariantsAgree("pps, sprop text", TextVariantsAgree);

std::string Mpeg4VariantsAgree() {
    std::string text = kMpeg4Hex;
    MP4VESParser parser;
    parser.TryParseString(text);
    const Bytes bytes = PlainHex(kMpeg4Hex);
    PlainMpeg4 plain = PlainParseMpeg4Config(bytes.data(), bytes.size());
    unsigned int width = 0;
    unsigned int height = 0;
    bool valid = false;
    parser.GetImageSize(width, height, valid);
    if (width != plain.width || height != plain.height || valid != plain.layerValid)
        return "layer " + std::to_string(width) + "x" + std::to_string(height) + " against " +
               std::to_string(plain.width) + "x" + std::to_string(plain.height);
    Bytes vop = PlainHex(kVopHex);
    parser.TryParse(vop.data(), Size(vop));
    PlainBits bits(vop.data(), vop.size());
    PlainParseVop(bits, plain);
    const bool isP = parser.GetFrameType(valid) == MediaPacket::kFrameP;
    return isP == (plain.codingType == 1) ? "" : "frame type";
}
const RegisterCheck mpeg4VariantsAgree("mpeg4", Mpeg4VariantsAgree);

}  // namespace
}  // namespace camclock::bench
