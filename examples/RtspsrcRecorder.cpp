// RtspsrcRecorder URL SECONDS: the frames of an RTSP camera, received by GStreamer's rtspsrc, with their
// times of capture. What a pipeline does with the pictures is its own affair: the receiver looks on at the
// pads by which RTP and RTCP enter rtspsrc's rtpbin.
#include <camclock/Receiver.h>

#include <gst/gst.h>
#include <gst/sdp/gstsdpmessage.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace receiver = camclock::receiver;

struct Recorder {
    receiver::Camera camera{"gate 3"};
    std::vector<std::shared_ptr<receiver::Stream>> streams;  // one for each media line of the description
};

/// In stdio's buffer: nothing that waits for somebody.
void Write(const receiver::Frame& frame) {
    const std::chrono::duration<double> captured = frame.captured_host.time_since_epoch();
    std::printf("%u captured at %.6f, trust %d\n", frame.rtp_ts, captured.count(), int(frame.trust));
}

/// The camera has described its streams: one for each media line, of whose payload types rtspsrc takes the
/// first.
void OnSdp(GstElement* /*source*/, GstSDPMessage* sdp, gpointer data) {
    auto& recorder = *static_cast<Recorder*>(data);
    for (guint i = 0; i < gst_sdp_message_medias_len(sdp); ++i) {
        gchar* text = gst_sdp_media_as_text(gst_sdp_message_get_media(sdp, i));
        auto formats = receiver::Format::FromSdp(text);
        g_free(text);
        formats.resize(1);
        recorder.streams.push_back(recorder.camera.AddStream(formats[0].media, formats[0], Write));
    }
}

/// A buffer, or a list of them, on its way into rtpbin.
template <void (receiver::Stream::*Feed)(const void*, std::size_t, camclock::TimePoint)>
GstPadProbeReturn OnBuffer(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer stream) {
    const camclock::TimePoint arrival = receiver::Now();  // before anything else
    const auto feed = [&](GstBuffer* buffer) {
        GstMapInfo bytes;
        if (gst_buffer_map(buffer, &bytes, GST_MAP_READ) == FALSE)
            return;
        (static_cast<receiver::Stream*>(stream)->*Feed)(bytes.data, bytes.size, arrival);
        gst_buffer_unmap(buffer, &bytes);
    };
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0)
        for (guint i = 0; i < gst_buffer_list_length(GST_PAD_PROBE_INFO_BUFFER_LIST(info)); ++i)
            feed(gst_buffer_list_get(GST_PAD_PROBE_INFO_BUFFER_LIST(info), i));
    else
        feed(GST_PAD_PROBE_INFO_BUFFER(info));
    return GST_PAD_PROBE_OK;
}

/// rtpbin's pads for what comes from the network are called recv_rtp_sink_0, recv_rtcp_sink_0 and so on.
void OnManagerPad(GstElement* /*manager*/, GstPad* pad, gpointer data) {
    auto& recorder = *static_cast<Recorder*>(data);
    unsigned number = 0;
    GstPadProbeCallback callback = nullptr;
    if (std::sscanf(GST_PAD_NAME(pad), "recv_rtp_sink_%u", &number) == 1)
        callback = OnBuffer<&receiver::Stream::FeedRtp>;
    else if (std::sscanf(GST_PAD_NAME(pad), "recv_rtcp_sink_%u", &number) == 1)
        callback = OnBuffer<&receiver::Stream::FeedRtcp>;
    if (callback == nullptr || number >= recorder.streams.size())
        return;
    constexpr int kBuffers = GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST;
    gst_pad_add_probe(pad, static_cast<GstPadProbeType>(kBuffers), callback, recorder.streams[number].get(),
                      nullptr);
}

void OnNewManager(GstElement* /*source*/, GstElement* manager, gpointer recorder) {
    g_signal_connect(manager, "pad-added", G_CALLBACK(OnManagerPad), recorder);
}

/// What the pipeline would decode or store.
void OnSourcePad(GstElement* source, GstPad* pad, gpointer /*data*/) {
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
    GstObject* pipeline = gst_object_get_parent(GST_OBJECT(source));
    gst_bin_add(GST_BIN(pipeline), sink);
    gst_object_unref(pipeline);
    GstPad* sinkPad = gst_element_get_static_pad(sink, "sink");
    gst_pad_link(pad, sinkPad);
    gst_object_unref(sinkPad);
    gst_element_sync_state_with_parent(sink);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: RtspsrcRecorder URL SECONDS\n");
        return 1;
    }
    gst_init(nullptr, nullptr);
    Recorder recorder;
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* source = gst_element_factory_make("rtspsrc", nullptr);
    g_object_set(source, "location", argv[1], "latency", 0U, nullptr);
    g_signal_connect(source, "on-sdp", G_CALLBACK(OnSdp), &recorder);
    g_signal_connect(source, "new-manager", G_CALLBACK(OnNewManager), &recorder);
    g_signal_connect(source, "pad-added", G_CALLBACK(OnSourcePad), nullptr);
    gst_bin_add(GST_BIN(pipeline), source);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);

    GstBus* bus = gst_element_get_bus(pipeline);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    bool failed = false;
    while (!failed && std::chrono::steady_clock::now() < end) {
        GstMessage* message = gst_bus_timed_pop_filtered(bus, 200 * GST_MSECOND, GST_MESSAGE_ERROR);
        failed = message != nullptr;
        g_clear_pointer(&message, gst_message_unref);
        recorder.camera.Poll();
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);  // joins the threads that feed
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    if (failed)
        std::fprintf(stderr, "RtspsrcRecorder: no stream, or it is lost\n");
    return failed ? 1 : 0;
}
