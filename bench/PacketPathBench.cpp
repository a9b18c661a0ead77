#include "Check.h"
#include "Measure.h"
#include "plain/PlainStream.h"
#include "sim/SimulatedStream.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <benchmark/benchmark.h>

#if defined(CAMCLOCK_BENCH_GSTREAMER)
#include <gst/check/gstharness.h>
#include <gst/rtp/gstrtpbuffer.h>
#endif

namespace camclock::bench {
using sim::SimulatedStream;

namespace {

/// Frames of one run: the stable time stamps grow, so they cannot be fed again and again.
constexpr std::size_t kFrames = 20'000;

struct Stream {
    Stream() {
        instance->DoTimeFiltering(true);
        instance->DoEstimation(true);
    }
    TimeFilter camera;
    std::shared_ptr<TimeFilterInstance> instance = camera.CreateNewTimeFilter();
};

void UpdateTiming(benchmark::State& state) {
    SimulatedStream source;
    Stream stream;
    stream.instance->UpdateSyncInfo(source.Report());
    auto frames = source.Frames(kFrames);
    std::size_t i = 0;
    Measure(state, [&] { stream.instance->UpdateTiming(std::move(frames[i++]), MediaPacket::kFrameP); });
}
BENCHMARK(UpdateTiming)->Name("update_timing/camclock")->Iterations(kFrames);

void PlainUpdateTiming(benchmark::State& state) {
    SimulatedStream source;
    PlainStream stream;
    stream.UpdateSyncInfo(source.Report());
    auto frames = source.Frames(kFrames);
    std::size_t i = 0;
    Measure(state, [&] { stream.UpdateTiming(std::move(frames[i++]), MediaPacket::kFrameP); });
}
BENCHMARK(PlainUpdateTiming)->Name("update_timing/plain")->Iterations(kFrames);

#if defined(CAMCLOCK_BENCH_GSTREAMER)
/// The element of the field that also relates arrival to capture, one packet a frame.
void JitterBuffer(benchmark::State& state) {
    gst_init(nullptr, nullptr);
    GstHarness* const harness = gst_harness_new("rtpjitterbuffer");
    gst_harness_set_src_caps(
        harness,
        gst_caps_from_string("application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96"));
    gst_harness_set_drop_buffers(harness, TRUE);
    SimulatedStream source;
    const auto frames = source.Frames(kFrames);
    std::vector<GstBuffer*> buffers;
    const TimePoint start = frames.front()->TOR_host;
    for (const auto& frame : frames) {
        GstBuffer* const buffer = gst_rtp_buffer_new_allocate(1'200, 0, 0);
        GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
        gst_rtp_buffer_map(buffer, GST_MAP_WRITE, &rtp);
        gst_rtp_buffer_set_payload_type(&rtp, 96);
        gst_rtp_buffer_set_seq(&rtp, static_cast<guint16>(frame->RTPSeqnum));
        gst_rtp_buffer_set_timestamp(&rtp, frame->RTP_ts);
        gst_rtp_buffer_unmap(&rtp);
        GST_BUFFER_DTS(buffer) = static_cast<GstClockTime>((frame->TOR_host - start).count()) * 100;
        GST_BUFFER_PTS(buffer) = GST_BUFFER_DTS(buffer);
        buffers.push_back(buffer);
    }
    std::size_t i = 0;
    Measure(state, [&] { gst_harness_push(harness, buffers[i++]); });
    gst_harness_teardown(harness);
}
BENCHMARK(JitterBuffer)->Name("update_timing/rtpjitterbuffer")->Iterations(kFrames)->MeasureProcessCPUTime();
#endif

std::string StreamsAgree() {
    SimulatedStream source(7);
    Stream stream;
    PlainStream plain;
    for (int i = 0; i < 5'000; ++i) {
        if (i == 0) {
            stream.instance->UpdateSyncInfo(source.Report());
            plain.UpdateSyncInfo(source.Report());
        }
        const auto frame = source.Frame();
        stream.instance->UpdateTiming(frame, MediaPacket::kFrameP);
        plain.UpdateTiming(frame, MediaPacket::kFrameP);
        if (stream.instance->GetCurrentTOC_Host() != plain.TOC_host() ||
            stream.instance->GetCurrentStablePTS() != plain.StablePts() ||
            stream.instance->GetCurrentEstimationQuality() != plain.Trust() ||
            stream.camera.GetD().count() != plain.D())
            return "frame " + std::to_string(i);
    }
    return {};
}
const RegisterCheck streamsAgree("update_timing", StreamsAgree);

}  // namespace
}  // namespace camclock::bench
