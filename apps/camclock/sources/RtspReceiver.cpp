#include "apps/camclock/sources/RtspReceiver.h"

#include "apps/camclock/sources/Gst.h"
#include "receiver/HostClock.h"

#include <gst/rtp/gstrtcpbuffer.h>
#include <gst/rtp/gstrtpbuffer.h>
#include <gst/rtsp/rtsp.h>

#include <fmt/format.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace camclock::app {
namespace {

// ---- packets
// ------------------------------------------------------------------------------------------------------

void TakeRtp(GstBuffer* buffer, TimePoint arrival, StreamSession& session) {
    GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
    if (gst_rtp_buffer_map(buffer, GST_MAP_READ, &rtp) == FALSE)
        return;  // no RTP packet
    receiver::RtpPacket packet;
    packet.RTP_ts = gst_rtp_buffer_get_timestamp(&rtp);
    packet.SSRC = gst_rtp_buffer_get_ssrc(&rtp);
    packet.seqnum = gst_rtp_buffer_get_seq(&rtp);
    packet.marker = gst_rtp_buffer_get_marker(&rtp) != FALSE;
    packet.payload = static_cast<const std::uint8_t*>(gst_rtp_buffer_get_payload(&rtp));
    packet.size = gst_rtp_buffer_get_payload_len(&rtp);
    packet.TOR_host = arrival;
    session.OnPacket(packet);
    gst_rtp_buffer_unmap(&rtp);
}

void TakeRtcp(GstBuffer* buffer, TimePoint arrival, StreamSession& session) {
    if (gst_rtcp_buffer_validate_reduced(buffer) == FALSE)
        return;
    GstRTCPBuffer rtcp = GST_RTCP_BUFFER_INIT;
    if (gst_rtcp_buffer_map(buffer, GST_MAP_READ, &rtcp) == FALSE)
        return;
    GstRTCPPacket packet;
    for (gboolean more = gst_rtcp_buffer_get_first_packet(&rtcp, &packet); more != FALSE;
         more = gst_rtcp_packet_move_to_next(&packet)) {
        if (gst_rtcp_packet_get_type(&packet) != GST_RTCP_TYPE_SR)
            continue;
        receiver::SenderReport report;
        gst_rtcp_packet_sr_get_sender_info(&packet, &report.SSRC, &report.NTP, &report.RTP_ts, nullptr,
                                           nullptr);
        session.OnSenderReport(report, arrival);
    }
    gst_rtcp_buffer_unmap(&rtcp);
}

/// Hands each buffer on its way through a pad to `Take`, with the time of its arrival.
template <void (*Take)(GstBuffer*, TimePoint, StreamSession&)>
GstPadProbeReturn OnBuffer(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer session) {
    const TimePoint arrival = receiver::HostClock::Now();  // before anything else
    StreamSession& stream = **static_cast<std::shared_ptr<StreamSession>*>(session);
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
        for (guint i = 0; i < gst_buffer_list_length(list); ++i)
            Take(gst_buffer_list_get(list, i), arrival, stream);
    } else {
        Take(GST_PAD_PROBE_INFO_BUFFER(info), arrival, stream);
    }
    return GST_PAD_PROBE_OK;
}

template <void (*Take)(GstBuffer*, TimePoint, StreamSession&)>
void Watch(GstPad* pad, std::shared_ptr<StreamSession> session) {
    constexpr auto kBuffers =
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    gst_pad_add_probe(pad, kBuffers, &OnBuffer<Take>, new std::shared_ptr<StreamSession>(std::move(session)),
                      [](gpointer data) { delete static_cast<std::shared_ptr<StreamSession>*>(data); });
}

/// The number behind `prefix` in a pad's name, or -1.
int SessionNumber(const gchar* name, const char* prefix) {
    const std::size_t length = std::strlen(prefix);
    if (std::strncmp(name, prefix, length) != 0)
        return -1;
    return static_cast<int>(g_ascii_strtoull(name + length, nullptr, 10));
}

std::optional<receiver::Codec> CodecOf(const char* encodingName) {
    if (g_ascii_strcasecmp(encodingName, "H264") == 0)
        return receiver::Codec::kH264;
    if (g_ascii_strcasecmp(encodingName, "MP4V-ES") == 0)
        return receiver::Codec::kMpeg4Visual;
    return std::nullopt;
}

}  // namespace

struct RtspReceiver::Pipeline {
    SessionMaker makeSession;
    Transport transport = Transport::kAuto;
    GstOwner<GstElement> pipeline;
    GstOwner<GstBus> bus;
    GstElement* source = nullptr;  // the pipeline's

    std::mutex mutex;  // guards what GStreamer's threads write below
    std::map<int, std::shared_ptr<StreamSession>> sessions;
    bool described = false;  // the camera has described its streams
    bool videoOffered = false;
    std::string unsupportedCodec;  // of a video stream that was turned down

    Failure Explain(const GError& error);

    // ---- GStreamer's callbacks, on its threads ----

    static void OnSdp(GstElement* /*source*/, gpointer /*sdp*/, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        const std::lock_guard<std::mutex> guard(self.mutex);
        self.described = true;
        self.videoOffered = false;
        self.unsupportedCodec.clear();
        self.sessions.clear();
    }

    static gboolean OnSelectStream(GstElement* /*source*/, guint number, GstCaps* caps, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        return self.Select(static_cast<int>(number), *gst_caps_get_structure(caps, 0)) ? TRUE : FALSE;
    }

    bool Select(int number, const GstStructure& stream) {
        const gchar* media = gst_structure_get_string(&stream, "media");
        const gchar* encoding = gst_structure_get_string(&stream, "encoding-name");
        if (media == nullptr || encoding == nullptr || std::strcmp(media, "video") != 0)
            return false;
        const std::lock_guard<std::mutex> guard(mutex);
        videoOffered = true;
        const std::optional<receiver::Codec> codec = CodecOf(encoding);
        if (!codec) {
            unsupportedCodec = encoding;
            return false;
        }
        if (!sessions.empty())
            return false;  // one video stream a URL: the first that is understood
        StreamFormat format;
        format.codec = *codec;
        gint clockRate = 0;
        if (gst_structure_get_int(&stream, "clock-rate", &clockRate) != FALSE && clockRate > 0)
            format.clockRate = static_cast<std::uint32_t>(clockRate);
        const gchar* headers = gst_structure_get_string(
            &stream, *codec == receiver::Codec::kH264 ? "sprop-parameter-sets" : "config");
        if (headers != nullptr)
            format.headers = headers;
        const std::shared_ptr<StreamSession> session = makeSession(format);
        sessions[number] = session;
        // A size beside the headers, for a stream whose headers tell none.
        for (const char* field : {"a-framesize", "a-x-dimensions"}) {
            const gchar* text = gst_structure_get_string(&stream, field);
            if (const auto size = text == nullptr ? std::nullopt : receiver::SizeOfText(text)) {
                session->OnCaps(size->width, size->height);
                break;
            }
        }
        return true;
    }

    static void OnNewManager(GstElement* /*source*/, GstElement* manager, gpointer data) {
        g_signal_connect(manager, "pad-added", G_CALLBACK(&Pipeline::OnManagerPad), data);
    }

    static void OnManagerPad(GstElement* /*manager*/, GstPad* pad, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        const TextOwner name(gst_pad_get_name(pad));
        const int rtp = SessionNumber(name.get(), "recv_rtp_sink_");
        const int rtcp = SessionNumber(name.get(), "recv_rtcp_sink_");
        const std::lock_guard<std::mutex> guard(self.mutex);
        const auto found = self.sessions.find(rtp >= 0 ? rtp : rtcp);
        if (found == self.sessions.end())
            return;
        if (rtp >= 0)
            Watch<TakeRtp>(pad, found->second);
        else
            Watch<TakeRtcp>(pad, found->second);
    }

    /// What leaves the source has been seen already: it is thrown away.
    static void OnSourcePad(GstElement* /*source*/, GstPad* pad, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
        gst_bin_add(GST_BIN(self.pipeline.get()), sink);
        const GstOwner<GstPad> sinkPad(gst_element_get_static_pad(sink, "sink"));
        gst_pad_link(pad, sinkPad.get());
        gst_element_sync_state_with_parent(sink);
    }
};

RtspReceiver::RtspReceiver(const StreamUrl& url, const ConnectionSettings& settings, SessionMaker makeSession)
    : pipeline_(std::make_unique<Pipeline>()) {
    Pipeline& p = *pipeline_;
    p.makeSession = std::move(makeSession);
    p.transport = settings.transport;
    p.pipeline.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
    p.bus.reset(gst_element_get_bus(p.pipeline.get()));
    p.source = gst_element_factory_make("rtspsrc", nullptr);

    constexpr auto kUdp = GST_RTSP_LOWER_TRANS_UDP | GST_RTSP_LOWER_TRANS_UDP_MCAST;
    const int protocols = settings.transport == Transport::kUdp   ? kUdp
                          : settings.transport == Transport::kTcp ? GST_RTSP_LOWER_TRANS_TCP
                                                                  : kUdp | GST_RTSP_LOWER_TRANS_TCP;
    // The owner gives up first and says so; this one only keeps GStreamer from giving up earlier.
    const auto connectTimeOut_us =
        static_cast<guint64>(std::chrono::microseconds(2 * settings.connectTimeOut).count());
    // Nothing is played: no jitter buffer, no retransmission. A closed connection is reported, not opened
    // anew behind our back.
    g_object_set(p.source, "location", url.location.c_str(), "protocols", protocols, "latency", 0U,
                 "do-retransmission", FALSE, "udp-reconnect", FALSE, "tcp-timeout", connectTimeOut_us,
                 nullptr);
    if (!url.user.empty())
        g_object_set(p.source, "user-id", url.user.c_str(), "user-pw", url.password.c_str(), nullptr);

    g_signal_connect(p.source, "on-sdp", G_CALLBACK(&Pipeline::OnSdp), &p);
    g_signal_connect(p.source, "select-stream", G_CALLBACK(&Pipeline::OnSelectStream), &p);
    g_signal_connect(p.source, "new-manager", G_CALLBACK(&Pipeline::OnNewManager), &p);
    g_signal_connect(p.source, "pad-added", G_CALLBACK(&Pipeline::OnSourcePad), &p);
    gst_bin_add(GST_BIN(p.pipeline.get()), p.source);
}

RtspReceiver::~RtspReceiver() {
    gst_element_set_state(pipeline_->pipeline.get(), GST_STATE_NULL);
}

void RtspReceiver::Start() {
    gst_element_set_state(pipeline_->pipeline.get(), GST_STATE_PLAYING);
}

std::optional<Failure> RtspReceiver::Poll() {
    std::optional<Failure> failure;
    while (!failure) {
        const MessageOwner message(gst_bus_pop(pipeline_->bus.get()));
        if (!message)
            break;
        switch (GST_MESSAGE_TYPE(message.get())) {
        case GST_MESSAGE_ERROR: {
            GError* raw = nullptr;
            gst_message_parse_error(message.get(), &raw, nullptr);
            const ErrorOwner error(raw);
            failure = pipeline_->Explain(*error);
            break;
        }
        case GST_MESSAGE_EOS:
            failure = Failure{ExitCode::kStreamLost, "stream lost: the camera ended it",
                              "look whether the camera restarted, or use --reconnect"};
            break;
        default: break;
        }
    }
    return failure;
}

Failure RtspReceiver::Pipeline::Explain(const GError& error) {
    const std::lock_guard<std::mutex> guard(mutex);
    if (described && sessions.empty()) {
        if (!videoOffered)
            return {ExitCode::kNoVideo, "no video: the camera describes no video stream at this path",
                    "ask the camera's manual for the path of its video"};
        return {
            ExitCode::kUnsupportedCodec,
            fmt::format("unsupported codec: the video is {}, not H.264 or MPEG-4 Visual", unsupportedCodec),
            "set the camera's stream to H.264"};
    }
    if (error.domain == GST_RESOURCE_ERROR) {
        switch (error.code) {
        case GST_RESOURCE_ERROR_NOT_AUTHORIZED:
            return {ExitCode::kUnauthorised, "unauthorised: the camera refuses these credentials",
                    "give them with --user NAME and the password in CAMCLOCK_PASSWORD"};
        case GST_RESOURCE_ERROR_NOT_FOUND:
            return {ExitCode::kNotFound, "not found: the camera has no stream at this path",
                    "ask the camera's manual for the path of its video"};
        case GST_RESOURCE_ERROR_OPEN_READ:
        case GST_RESOURCE_ERROR_OPEN_WRITE:
        case GST_RESOURCE_ERROR_OPEN_READ_WRITE:
            if (!described)
                return {ExitCode::kNotReachable,
                        "no connection: refused, no way to the camera, or its name is unknown",
                        "check the host and the port of the URL"};
            break;
        default: break;
        }
        if (!described)
            return {ExitCode::kNotReachable, "no connection: the host does not answer as an RTSP server",
                    "check the host and the port of the URL"};
    }
    if (described)
        return {ExitCode::kStreamLost, fmt::format("stream lost: {}", error.message),
                "look whether the camera restarted, or use --reconnect"};
    return {ExitCode::kInternalError, error.message, ""};
}

namespace {

/// GStreamer warns of matters inside its own elements that no user can do anything about.
void WithoutGstreamerWarnings(const gchar* domain, GLogLevelFlags level, const gchar* message,
                              gpointer data) {
    if ((level & G_LOG_LEVEL_WARNING) == 0)
        g_log_default_handler(domain, level, message, data);
}

}  // namespace

std::optional<Failure> PrepareGstreamer() {
    GError* raw = nullptr;
    if (gst_init_check(nullptr, nullptr, &raw) == FALSE) {
        const ErrorOwner error(raw);
        return Failure{
            ExitCode::kInternalError,
            fmt::format("GStreamer does not start: {}", error ? error->message : "no reason given"), ""};
    }
    g_log_set_handler("GStreamer", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_RECURSION),
                      &WithoutGstreamerWarnings, nullptr);
    for (const char* element : {"rtspsrc", "rtpbin", "udpsrc"}) {
        const GstOwner<GstElementFactory> factory(gst_element_factory_find(element));
        if (!factory)
            return Failure{ExitCode::kInternalError, fmt::format("GStreamer has no element {}", element),
                           "install its good plug-ins (Debian: gstreamer1.0-plugins-good)"};
    }
    return std::nullopt;
}

}  // namespace camclock::app
