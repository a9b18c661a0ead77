#include "Check.h"
#include "Measure.h"
#include "parsers/HexText.h"
#include "plain/PlainParsers.h"
#include "support/Base64.h"
#include "support/H264Headers.h"

#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstring>
#include <random>
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
        benchmark::DoNotOptimize(sps);
    });
}
BENCHMARK_CAPTURE(Sps, vui, PlainHex(kSpsHex))->Name("sps_1080p_vui/camclock")->Iterations(kIterations);
BENCHMARK_CAPTURE(Sps, matrix, SpsWithScalingMatrix())
    ->Name("sps_scaling_matrix/camclock")
    ->Iterations(kIterations);

void PlainSpsBench(benchmark::State& state, const Bytes& bytes) {
    SPSset sps;
    Measure(state, [&] {
        sps = PlainParseSps(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(sps);
    });
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
        benchmark::DoNotOptimize(pps);
    });
}
BENCHMARK(Pps)->Name("pps/camclock")->Iterations(kIterations);

void PlainPpsBench(benchmark::State& state) {
    const Bytes bytes = PlainHex(kPpsHex);
    PPSset pps;
    Measure(state, [&] {
        pps = PlainParsePps(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(pps);
    });
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
    SPSset sps;
    PPSset pps;
    Measure(state, [&] {
        const std::string sprops = text;
        const std::size_t comma = sprops.find(',');
        const Bytes spsBytes = PlainBase64(sprops.substr(0, comma));
        const Bytes ppsBytes = PlainBase64(sprops.substr(comma + 1));
        sps = PlainParseSps(spsBytes.data(), spsBytes.size());
        pps = PlainParsePps(ppsBytes.data(), ppsBytes.size());
        benchmark::DoNotOptimize(sps);
        benchmark::DoNotOptimize(pps);
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
    PlainMpeg4 parser;
    Measure(state, [&] {
        parser.Parse(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(parser);
    });
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
    PlainMpeg4 parser;
    parser.Parse(config.data(), config.size());
    Measure(state, [&] {
        parser.Parse(vop.data(), vop.size());
        benchmark::DoNotOptimize(parser);
    });
}
BENCHMARK(PlainMpeg4Vop)->Name("mpeg4_vop/plain")->Iterations(kIterations);

void Mpeg4HexText(benchmark::State& state) {
    MP4VESParser parser;
    std::string text = kMpeg4Hex;
    Measure(state, [&] { benchmark::DoNotOptimize(parser.TryParseString(text)); });
}
BENCHMARK(Mpeg4HexText)->Name("mpeg4_config_text/camclock")->Iterations(kIterations);

void PlainMpeg4HexText(benchmark::State& state) {
    PlainMpeg4 parser;
    Measure(state, [&] {
        const Bytes bytes = PlainHex(kMpeg4Hex);
        parser.Parse(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(parser);
    });
}
BENCHMARK(PlainMpeg4HexText)->Name("mpeg4_config_text/plain")->Iterations(kIterations);

void HexText(benchmark::State& state) {
    Bytes bytes;
    Measure(state, [&] {
        DecodeHexText(kMpeg4Hex, bytes);
        benchmark::DoNotOptimize(bytes.data());
    });
}
BENCHMARK(HexText)->Name("hex_text/camclock")->Iterations(kIterations);

void PlainHexText(benchmark::State& state) {
    Measure(state, [&] { benchmark::DoNotOptimize(PlainHex(kMpeg4Hex)); });
}
BENCHMARK(PlainHexText)->Name("hex_text/plain")->Iterations(kIterations);

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
BENCHMARK(BoostHex)->Name("hex_text/boost_unhex")->Iterations(kIterations);
#endif

// ---- proofs
// ---------------------------------------------------------------------------------------------------------

/// The 32-bit fields of a record that lie between two of its members.
template <class Record>
std::vector<std::uint32_t> Words(const Record& record, std::size_t from, std::size_t to) {
    std::vector<std::uint32_t> words((to - from) / sizeof(std::uint32_t));
    std::memcpy(words.data(), reinterpret_cast<const char*>(&record) + from, to - from);
    return words;
}

bool Same(const SPSset& a, const SPSset& b) {
    const auto words = [](const SPSset& sps) {
        std::vector<std::vector<std::uint32_t>> all;
        all.push_back(Words(sps, offsetof(SPSset, profile_idc),
                            offsetof(SPSset, seq_scaling_matrix_present_flag) + sizeof(std::uint32_t)));
        all.push_back(Words(sps, offsetof(SPSset, log2_max_frame_num_minus4),
                            offsetof(SPSset, num_ref_frames_in_pic_order_cnt_cycle) + sizeof(std::uint32_t)));
        all.push_back(Words(sps, offsetof(SPSset, max_num_ref_frames),
                            offsetof(SPSset, vui_parameters_present_flag) + sizeof(std::uint32_t)));
        return all;
    };
    return a.valid == b.valid && words(a) == words(b) &&
           a.seq_scaling_list_present_flag == b.seq_scaling_list_present_flag &&
           (!a.valid || a.offset_for_ref_frame == b.offset_for_ref_frame);
}

bool Same(const PPSset& a, const PPSset& b) {
    const auto words = [](const PPSset& pps) {
        std::vector<std::vector<std::uint32_t>> all;
        all.push_back(Words(pps, offsetof(PPSset, pic_parameter_set_id),
                            offsetof(PPSset, slice_group_map_type) + sizeof(std::uint32_t)));
        all.push_back(Words(pps, offsetof(PPSset, slice_group_change_direction_flag),
                            offsetof(PPSset, redundant_pic_cnt_present_flag) + sizeof(std::uint32_t)));
        return all;
    };
    return a.valid == b.valid && words(a) == words(b) &&
           (!a.valid || (a.run_length_minus1 == b.run_length_minus1 && a.top_left == b.top_left &&
                         a.bottom_right == b.bottom_right));
}

/// Two headers of MPEG-4: two flags, then nothing but 32-bit fields.
template <class Header>
bool Same(const Header& a, const Header& b) {
    return a.valid == b.valid && a.present == b.present &&
           Words(a, sizeof(std::uint32_t), sizeof a) == Words(b, sizeof(std::uint32_t), sizeof b);
}

/// Cuts `bytes` everywhere and spoils them in many places: `same` has to hold for each.
template <class SameForBoth>
std::string ForManySpoilt(const Bytes& bytes, SameForBoth same) {
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        if (!same(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut))))
            return "cut after " + std::to_string(cut) + " bytes";
    }
    std::mt19937 random(5);
    for (int i = 0; i < 20'000; ++i) {
        Bytes spoilt = bytes;
        for (unsigned flips = 1 + random() % 4; flips > 0; --flips)
            spoilt[random() % spoilt.size()] ^= static_cast<unsigned char>(1U << random() % 8);
        if (!same(spoilt))
            return "spoilt number " + std::to_string(i);
    }
    return {};
}

std::string SpsVariantsAgree() {
    for (const Bytes& bytes : {PlainHex(kSpsHex), SpsWithScalingMatrix()}) {
        const std::string difference = ForManySpoilt(bytes, [](Bytes part) {
            ParameterSetParser parser;
            parser.SetSPSArray(part.data(), Size(part));
            return Same(parser.GetSPS(), PlainParseSps(part.data(), part.size()));
        });
        if (!difference.empty())
            return difference;
    }
    return {};
}
const RegisterCheck spsVariantsAgree("sps", SpsVariantsAgree);

std::string PpsVariantsAgree() {
    return ForManySpoilt(PlainHex(kPpsHex), [](Bytes part) {
        ParameterSetParser parser;
        parser.SetPPSArray(part.data(), Size(part));
        return Same(parser.GetPPS(), PlainParsePps(part.data(), part.size()));
    });
}
const RegisterCheck ppsVariantsAgree("pps", PpsVariantsAgree);

std::string TextVariantsAgree() {
    std::string text = SpropText();
    ParameterSetParser parser;
    parser.SetSpropsString(text);
    const Bytes sps = PlainBase64(testing::EncodeBase64(PlainHex(kSpsHex)));
    const Bytes pps = PlainBase64(testing::EncodeBase64(PlainHex(kPpsHex)));
    return Same(parser.GetSPS(), PlainParseSps(sps.data(), sps.size())) &&
                   Same(parser.GetPPS(), PlainParsePps(pps.data(), pps.size()))
               ? ""
               : "fields";
}
const RegisterCheck textVariantsAgree("sprop_text", TextVariantsAgree);

bool Same(const MP4VESParser& ours, const PlainMpeg4& plain) {
    return Same(ours.GetVisualObjectSequence(), plain.sequence) &&
           Same(ours.GetVisualObject(), plain.object) && Same(ours.GetVideoObjectLayer(), plain.layer) &&
           Same(ours.GetVideoObjectPlane(), plain.plane);
}

std::string Mpeg4VariantsAgree() {
    const Bytes vop = PlainHex(kVopHex);
    Bytes bytes = PlainHex(kMpeg4Hex);
    bytes.insert(bytes.end(), vop.begin(), vop.end());
    return ForManySpoilt(bytes, [vop](Bytes part) {
        MP4VESParser ours;
        PlainMpeg4 plain;
        ours.TryParse(part.data(), Size(part));
        plain.Parse(part.data(), part.size());
        if (!Same(ours, plain))
            return false;
        Bytes next = vop;  // read with whatever settings the spoilt layer has left
        ours.TryParse(next.data(), Size(next));
        plain.Parse(next.data(), next.size());
        return Same(ours, plain);
    });
}
const RegisterCheck mpeg4VariantsAgree("mpeg4", Mpeg4VariantsAgree);

/// Every pair of characters there is, and a whole configuration.
std::string HexVariantsAgree() {
    std::string pair(2, '\0');
    Bytes bytes;
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            pair[0] = static_cast<char>(first);
            pair[1] = static_cast<char>(second);
            DecodeHexText(pair, bytes);
            if (bytes != PlainHex(pair))
                return "characters " + std::to_string(first) + " " + std::to_string(second);
        }
    }
    DecodeHexText(kMpeg4Hex, bytes);
    return bytes == PlainHex(kMpeg4Hex) ? "" : "configuration";
}
const RegisterCheck hexVariantsAgree("hex_text", HexVariantsAgree);

}  // namespace
}  // namespace camclock::bench
