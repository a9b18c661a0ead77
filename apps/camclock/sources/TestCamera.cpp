#include "apps/camclock/sources/TestCamera.h"

#include "apps/camclock/sources/Gst.h"

#include <camclock/Receiver.h>

#include <fmt/format.h>
#include <gst/rtp/gstrtpbuffer.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>

namespace camclock::app {
namespace {

constexpr char kPath[] = "/video";
constexpr char kRole[] = "viewer";

/// Seconds from 1900, where NTP begins, to 1970 (RFC 3550, 4).
constexpr std::uint64_t kNtpToUnix_s = 2'208'988'800;

/// A sender report comes within the first second and then once a second, so that a short demo is synchronised
/// soon.
constexpr guint64 kReportInterval_ns = 1'000'000'000;

/// rtpbin's ntp-time-source "clock-time": the reports tell the time of the pipeline's clock.
constexpr int kNtpTimeOfClock = 3;

/// The pipeline behind the server's path; "maker" makes the frames, "pay0" turns them into packets. The
/// server sends each frame a fixed time after it was made, some 60 ms, as a real camera takes its time to
/// encode and to send; the queue keeps that wait away from the maker.
const char* PipelineOf(TestCamera::Stream stream) {
    switch (stream) {
    case TestCamera::Stream::kH264:
        return "( videotestsrc name=maker is-live=true ! video/x-raw,format=I420,width=640,height=480,framerate=25/1 ! queue "
               "! x264enc tune=zerolatency speed-preset=ultrafast bitrate=1000 key-int-max=25 "
               "! rtph264pay name=pay0 pt=96 config-interval=-1 )";
    case TestCamera::Stream::kMpeg4Visual:
        return "( videotestsrc name=maker is-live=true ! video/x-raw,format=I420,width=640,height=480,framerate=25/1 ! queue "
               "! avenc_mpeg4 bitrate=1000000 gop-size=25 ! rtpmp4vpay name=pay0 pt=96 config-interval=1 )";
    case TestCamera::Stream::kMotionJpeg:
        return "( videotestsrc name=maker is-live=true ! video/x-raw,format=I420,width=320,height=240,framerate=5/1 ! queue "
               "! jpegenc ! rtpjpegpay name=pay0 pt=26 )";
    case TestCamera::Stream::kAudioOnly: break;
    }
    return "( audiotestsrc name=maker is-live=true ! audioconvert ! audioresample ! audio/x-raw,rate=8000,channels=1 "
           "! mulawenc ! rtppcmupay name=pay0 pt=0 )";
}

/// `time` in nanoseconds since 1900.
GstClockTime NtpNanoseconds(TimePoint time) {
    const std::int64_t sinceUnix_ns = time.time_since_epoch().count() * 100;
    return static_cast<GstClockTime>(sinceUnix_ns) + kNtpToUnix_s * GST_SECOND;
}

TimePoint FromNtpNanoseconds(GstClockTime time) {
    return TimePoint(Ticks(static_cast<std::int64_t>(time - kNtpToUnix_s * GST_SECOND) / 100));
}

/// A clock that shows the host's time plus an offset, and runs faster by so many ppm; NTP's epoch, so that
/// sender reports can tell it as it is.
GstOwner<GstClock> MakeClock(const TestCamera::Settings& settings) {
    GstOwner<GstClock> clock(
        GST_CLOCK(gst_object_ref_sink(g_object_new(GST_TYPE_SYSTEM_CLOCK, "name", "camera-clock", nullptr))));
    constexpr GstClockTime kMillion_ppb = 1'000'000'000;
    const auto drift_ppb = static_cast<std::int64_t>(std::llround(settings.drift_ppm * 1000.0));
    const GstClockTime now = gst_clock_get_internal_time(clock.get());
    gst_clock_set_calibration(clock.get(), now, NtpNanoseconds(receiver::Now() + settings.offset),
                              static_cast<GstClockTime>(static_cast<std::int64_t>(kMillion_ppb) + drift_ppb),
                              kMillion_ppb);
    return clock;
}

struct TokenUnref {
    void operator()(GstRTSPToken* token) const { gst_rtsp_token_unref(token); }
};

struct LoopUnref {
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

struct ContextUnref {
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
};

}  // namespace

struct TestCamera::Server {
    Settings settings;
    GstOwner<GstClock> clock;
    std::unique_ptr<GMainContext, ContextUnref> context;
    std::unique_ptr<GMainLoop, LoopUnref> loop;
    GstOwner<GstRTSPServer> server;
    guint sourceId = 0;
    int port = 0;
    std::atomic<bool> silent{false};
    std::thread thread;

    mutable std::mutex mutex;                        // guards the records below
    std::map<GstClockTime, Truth> inEncoder;         // by running time
    std::unordered_map<std::uint32_t, Truth> truth;  // by RTP time stamp

    void AddPath();
    void AskForCredentials(GstRTSPMediaFactory* factory) const;
    void SpeakTls(GstRTSPMediaFactory* factory) const;

    // ---- callbacks, on GStreamer's threads ----

    static void OnMedia(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, gpointer data) {
        const GstOwner<GstElement> bin(gst_rtsp_media_get_element(media));
        Probe(bin.get(), "maker", "src", &Server::OnMade, data);
        Probe(bin.get(), "pay0", "sink", &Server::OnEncoded, data);
        Probe(bin.get(), "pay0", "src", &Server::OnPacket, data);
        const GstOwner<GstObject> pipeline(gst_object_get_parent(GST_OBJECT(bin.get())));
        g_signal_connect(pipeline.get(), "deep-element-added", G_CALLBACK(&Server::OnElement), data);
    }

    static void Probe(GstElement* bin, const char* element, const char* pad, GstPadProbeCallback callback,
                      gpointer data) {
        const GstOwner<GstElement> found(gst_bin_get_by_name(GST_BIN(bin), element));
        const GstOwner<GstPad> foundPad(gst_element_get_static_pad(found.get(), pad));
        constexpr auto kBuffers =
            static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
        gst_pad_add_probe(foundPad.get(), kBuffers, callback, data, nullptr);
    }

    /// The parts that write sender reports are made by the server; here they get the camera's clock and pace.
    static void OnElement(GstBin* /*pipeline*/, GstBin* /*parent*/, GstElement* element, gpointer /*data*/) {
        GstElementFactory* factory = gst_element_get_factory(element);
        if (factory == nullptr)
            return;
        const gchar* kind = gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(factory));
        if (std::strcmp(kind, "rtpbin") == 0) {
            g_object_set(element, "ntp-time-source", kNtpTimeOfClock, "rtcp-sync-send-time", FALSE, nullptr);
        } else if (std::strcmp(kind, "rtpsession") == 0) {
            GObject* session = nullptr;
            g_object_get(element, "internal-session", &session, nullptr);
            const GstOwner<GObject> owner(session);
            g_object_set(session, "rtcp-min-interval", kReportInterval_ns, nullptr);
        }
    }

    /// A frame is made: it gets the camera's time, and the truth is written down.
    static GstPadProbeReturn OnMade(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
        auto& self = *static_cast<Server*>(data);
        if (self.silent)
            return GST_PAD_PROBE_DROP;
        const GstOwner<GstElement> maker(gst_pad_get_parent_element(pad));
        const GstClockTime base = gst_element_get_base_time(maker.get());
        const TimePoint madeAt_host = receiver::Now();
        const GstClockTime madeAt_cam = gst_clock_get_time(self.clock.get());
        if (madeAt_cam < base)
            return GST_PAD_PROBE_OK;
        GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
        GST_BUFFER_PTS(buffer) = madeAt_cam - base;
        GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
        GST_PAD_PROBE_INFO_DATA(info) = buffer;

        const std::lock_guard<std::mutex> guard(self.mutex);
        self.inEncoder[madeAt_cam - base] = Truth{madeAt_host, FromNtpNanoseconds(madeAt_cam)};
        return GST_PAD_PROBE_OK;
    }

    /// These encoders neither reorder nor drop frames: what comes out is the oldest frame that went in. It
    /// gets that frame's time, since not every encoder of GStreamer hands it through, and the server sends by
    /// it.
    static GstPadProbeReturn OnEncoded(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
        auto& self = *static_cast<Server*>(data);
        if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) == 0)
            return GST_PAD_PROBE_OK;
        GstEvent* event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
        if (event == nullptr)
            return GST_PAD_PROBE_OK;
        const GstSegment* segment = nullptr;
        gst_event_parse_segment(event, &segment);
        const std::lock_guard<std::mutex> guard(self.mutex);
        if (!self.inEncoder.empty()) {
            GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
            GST_BUFFER_PTS(buffer) = gst_segment_position_from_running_time(segment, GST_FORMAT_TIME,
                                                                            self.inEncoder.begin()->first);
            GST_BUFFER_DTS(buffer) = GST_BUFFER_PTS(buffer);
            GST_PAD_PROBE_INFO_DATA(info) = buffer;
        }
        gst_event_unref(event);
        return GST_PAD_PROBE_OK;
    }

    /// The first packet of a frame tells which RTP time stamp the frame has got.
    static GstPadProbeReturn OnPacket(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
        GstBuffer* buffer = (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0
                                ? gst_buffer_list_get(GST_PAD_PROBE_INFO_BUFFER_LIST(info), 0)
                                : GST_PAD_PROBE_INFO_BUFFER(info);
        GstEvent* event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
        if (event == nullptr)
            return GST_PAD_PROBE_OK;
        const GstSegment* segment = nullptr;
        gst_event_parse_segment(event, &segment);
        const GstClockTime runningTime =
            gst_segment_to_running_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
        gst_event_unref(event);

        GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
        if (gst_rtp_buffer_map(buffer, GST_MAP_READ, &rtp) == FALSE)
            return GST_PAD_PROBE_OK;
        const std::uint32_t RTP_ts = gst_rtp_buffer_get_timestamp(&rtp);
        gst_rtp_buffer_unmap(&rtp);
        static_cast<Server*>(data)->Remember(RTP_ts, runningTime);
        return GST_PAD_PROBE_OK;
    }

    void Remember(std::uint32_t RTP_ts, GstClockTime runningTime) {
        const std::lock_guard<std::mutex> guard(mutex);
        const auto made = inEncoder.find(runningTime);
        if (made == inEncoder.end())
            return;  // a later packet of the same frame
        truth[RTP_ts] = made->second;
        inEncoder.erase(inEncoder.begin(), std::next(made));  // earlier ones never left the encoder
    }

    static GstRTSPFilterResult CloseClient(GstRTSPServer* /*server*/, GstRTSPClient* /*client*/,
                                           gpointer /*data*/) {
        return GST_RTSP_FILTER_REMOVE;
    }
};

void TestCamera::Server::AddPath() {
    const GstOwner<GstRTSPMediaFactory> factory(gst_rtsp_media_factory_new());
    gst_rtsp_media_factory_set_launch(factory.get(), PipelineOf(settings.stream));
    gst_rtsp_media_factory_set_shared(factory.get(), TRUE);
    gst_rtsp_media_factory_set_clock(factory.get(), clock.get());
    g_signal_connect(factory.get(), "media-configure", G_CALLBACK(&Server::OnMedia), this);
    if (!settings.user.empty())
        AskForCredentials(factory.get());
    else if (!settings.tlsCertificate.empty())
        SpeakTls(factory.get());
    const GstOwner<GstRTSPMountPoints> paths(gst_rtsp_server_get_mount_points(server.get()));
    gst_rtsp_mount_points_add_factory(paths.get(), kPath,
                                      GST_RTSP_MEDIA_FACTORY(g_object_ref(factory.get())));
}

/// Digest authentication (RFC 2069, which RTSP 1.0 takes over).
void TestCamera::Server::AskForCredentials(GstRTSPMediaFactory* factory) const {
    const GstOwner<GstRTSPAuth> auth(gst_rtsp_auth_new());
    gst_rtsp_auth_set_supported_methods(auth.get(), GST_RTSP_AUTH_DIGEST);
    const std::unique_ptr<GstRTSPToken, TokenUnref> token(
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, kRole, nullptr));
    gst_rtsp_auth_add_digest(auth.get(), settings.user.c_str(), settings.password.c_str(), token.get());
    gst_rtsp_server_set_auth(server.get(), auth.get());
    gst_rtsp_media_factory_add_role(factory, kRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                    GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
}

/// Whoever comes over TLS is let in.
void TestCamera::Server::SpeakTls(GstRTSPMediaFactory* factory) const {
    const GstOwner<GTlsCertificate> certificate(
        g_tls_certificate_new_from_file(settings.tlsCertificate.c_str(), nullptr));
    if (!certificate)
        throw std::runtime_error("the test camera cannot read its certificate");
    const GstOwner<GstRTSPAuth> auth(gst_rtsp_auth_new());
    gst_rtsp_auth_set_tls_certificate(auth.get(), certificate.get());
    const std::unique_ptr<GstRTSPToken, TokenUnref> token(
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, kRole, nullptr));
    gst_rtsp_auth_set_default_token(auth.get(), token.get());
    gst_rtsp_server_set_auth(server.get(), auth.get());
    gst_rtsp_media_factory_add_role(factory, kRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                    GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
}

TestCamera::TestCamera(const Settings& settings)
    : server_(std::make_unique<Server>()) {
    Server& s = *server_;
    s.settings = settings;
    s.clock = MakeClock(settings);
    s.context.reset(g_main_context_new());
    s.loop.reset(g_main_loop_new(s.context.get(), FALSE));
    s.server.reset(gst_rtsp_server_new());
    gst_rtsp_server_set_address(s.server.get(), "127.0.0.1");
    gst_rtsp_server_set_service(s.server.get(), "0");  // a free port
    s.AddPath();
    s.sourceId = gst_rtsp_server_attach(s.server.get(), s.context.get());
    s.port = gst_rtsp_server_get_bound_port(s.server.get());
    if (s.sourceId == 0 || s.port <= 0)
        throw std::runtime_error("the test camera finds no free port on 127.0.0.1");
    s.thread = std::thread([&s] {
        g_main_context_push_thread_default(s.context.get());
        g_main_loop_run(s.loop.get());
        g_main_context_pop_thread_default(s.context.get());
    });
}

TestCamera::~TestCamera() {
    Server& s = *server_;
    CloseConnections();
    if (GSource* source = g_main_context_find_source_by_id(s.context.get(), s.sourceId))
        g_source_destroy(source);
    g_main_loop_quit(s.loop.get());
    s.thread.join();
}

std::string TestCamera::Url() const {
    return fmt::format("{}://127.0.0.1:{}{}", server_->settings.tlsCertificate.empty() ? "rtsp" : "rtsps",
                       server_->port, kPath);
}

std::optional<TestCamera::Truth> TestCamera::TruthOf(std::uint32_t RTP_ts) const {
    const std::lock_guard<std::mutex> guard(server_->mutex);
    const auto found = server_->truth.find(RTP_ts);
    if (found == server_->truth.end())
        return std::nullopt;
    return found->second;
}

std::uint64_t TestCamera::FramesSent() const {
    const std::lock_guard<std::mutex> guard(server_->mutex);
    return server_->truth.size();
}

void TestCamera::FallSilent() {
    server_->silent = true;
}

void TestCamera::CloseConnections() {
    GList* left = gst_rtsp_server_client_filter(server_->server.get(), &Server::CloseClient, nullptr);
    g_list_free_full(left, g_object_unref);
}

}  // namespace camclock::app
