#include "apps/camclock/sources/RtspReceiver.h"

#include "apps/camclock/sources/ConnectionTrouble.h"
#include "apps/camclock/sources/Gst.h"
#include "apps/camclock/sources/RtspStatus.h"

#include <gio/gio.h>
#include <gst/rtsp/rtsp.h>
#include <gst/sdp/sdp.h>
#include <sys/socket.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace camclock::app {
namespace {

/// A camera may send us on some times; more is a loop, which GStreamer would follow for ever.
constexpr int kMostDescribes = 8;

/// Without credentials, with them, and once more when the camera finds that they are stale (RFC 2617, 3.3).
constexpr int kMostTries = 3;

using Feed = void (StreamFeed::*)(const void*, std::size_t, TimePoint);

template <Feed feed>
void Take(GstBuffer* buffer, TimePoint arrival, StreamFeed& stream) {
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE)
        return;
    (stream.*feed)(map.data, map.size, arrival);
    gst_buffer_unmap(buffer, &map);
}

/// How long ago did this buffer arrive? A datagram carries the kernel's stamp of it as its DTS, in running
/// time
/// (`StampInKernel`); what came over TCP carries none, and arrives when it is read.
Ticks AgeOf(GstBuffer* buffer, GstClockTime running) {
    const GstClockTime stamp = GST_BUFFER_DTS(buffer);
    // A stamp from before a step of the system clock tells nothing: no thread is kept waiting for a second.
    if (!GST_CLOCK_TIME_IS_VALID(stamp) || stamp > running || running - stamp > GST_SECOND)
        return Ticks(0);
    return Ticks(static_cast<std::int64_t>((running - stamp) / 100));
}

/// The running time of the element that a pad belongs to; 0 while it has none.
GstClockTime RunningTime(GstPad* pad) {
    GstElement* const element = GST_PAD_PARENT(pad);
    const GstOwner<GstClock> clock(element == nullptr ? nullptr : gst_element_get_clock(element));
    if (!clock)
        return 0;
    const GstClockTime now = gst_clock_get_time(clock.get());
    const GstClockTime base = gst_element_get_base_time(element);
    return now > base ? now - base : 0;
}

/// Feeds each buffer on its way through a pad, with the time of its arrival.
template <Feed feed>
GstPadProbeReturn OnBuffer(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    const TimePoint now = receiver::Now();  // before anything else
    const GstClockTime running = RunningTime(pad);
    StreamFeed& stream = **static_cast<std::shared_ptr<StreamFeed>*>(data);
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
        for (guint i = 0; i < gst_buffer_list_length(list); ++i) {
            GstBuffer* buffer = gst_buffer_list_get(list, i);
            Take<feed>(buffer, now - AgeOf(buffer, running), stream);
        }
    } else {
        GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
        Take<feed>(buffer, now - AgeOf(buffer, running), stream);
    }
    return GST_PAD_PROBE_OK;
}

template <Feed feed>
void Watch(GstPad* pad, std::shared_ptr<StreamFeed> stream) {
    constexpr auto kBuffers =
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    gst_pad_add_probe(pad, kBuffers, &OnBuffer<feed>, new std::shared_ptr<StreamFeed>(std::move(stream)),
                      [](gpointer data) { delete static_cast<std::shared_ptr<StreamFeed>*>(data); });
}

/// The number behind `prefix` in a pad's name, or -1.
int SessionNumber(const gchar* name, const char* prefix) {
    const std::size_t length = std::strlen(prefix);
    if (std::strncmp(name, prefix, length) != 0)
        return -1;
    return static_cast<int>(g_ascii_strtoull(name + length, nullptr, 10));
}

std::string Field(const GstStructure& structure, const char* name) {
    const gchar* text = gst_structure_get_string(&structure, name);
    return text == nullptr ? "" : text;
}

bool IsUdpSource(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    return factory != nullptr &&
           std::strcmp(gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(factory)), "udpsrc") == 0;
}

/// Has the kernel stamp datagrams when they arrive, before any thread has been woken for them. rtspsrc has
/// opened the socket already, when an element could still have asked for it itself.
void StampInKernel(GstElement* udpSource) {
#if defined(SO_TIMESTAMPNS)
    GSocket* raw = nullptr;
    g_object_get(udpSource, "used-socket", &raw, nullptr);
    const GstOwner<GSocket> socket(raw);
    if (socket && g_socket_set_option(socket.get(), SOL_SOCKET, SO_TIMESTAMPNS, 1, nullptr) != FALSE)
        gst_util_set_object_arg(G_OBJECT(udpSource), "socket-timestamp", "realtime");
#else
    static_cast<void>(udpSource);
#endif
}

/// What a message of the bus tells about an error.
struct BusError {
    GQuark domain = 0;
    int code = 0;
    std::string text;
    unsigned int status = 0;  // the camera's RTSP status code; 0: it did not answer with one
    std::string reason;
    bool decoding = false;  // it comes from what decodes pictures
};

/// A refused SETUP stands in the developers' text only: "file(line): function: element:\nError (453):
/// reason".
void ReadStatusText(const char* text, BusError& out) {
    constexpr std::string_view kStart = "Error (";
    const std::string_view all = text == nullptr ? "" : text;
    const std::size_t start = all.rfind(kStart);
    if (start == std::string_view::npos)
        return;
    const std::string rest(all.substr(start + kStart.size()));
    const std::size_t end = rest.find("): ");
    if (end != 3)
        return;
    out.status = static_cast<unsigned int>(g_ascii_strtoull(rest.c_str(), nullptr, 10));
    out.reason = rest.substr(end + 3);
}

BusError ReadError(GstMessage* message) {
    GError* raw = nullptr;
    gchar* rawText = nullptr;
    gst_message_parse_error(message, &raw, &rawText);
    const ErrorOwner error(raw);
    const TextOwner debug(rawText);
    BusError result{error->domain, error->code, error->message, 0, ""};
    const GstStructure* details = nullptr;
    gst_message_parse_error_details(message, &details);
    if (details != nullptr) {
        guint status = 0;
        if (gst_structure_get_uint(details, "rtsp-status-code", &status) != FALSE)
            result.status = status;
        result.reason = Field(*details, "rtsp-status-reason");
    }
    if (result.status == 0)
        ReadStatusText(debug.get(), result);
    return result;
}

}  // namespace

struct RtspReceiver::Pipeline {
    StreamUrl url;
    ConnectionSettings settings;
    Taker taker;
    PictureGrabber* const grabber;  // may be null
    GstOwner<GstElement> pipeline;
    GstOwner<GstBus> bus;
    GstElement* source = nullptr;  // the pipeline's
    GstOwner<GCancellable> cancel{g_cancellable_new()};
    std::atomic<int> udpSources{0};

    std::mutex mutex;  // guards what GStreamer's threads and the worker write below
    std::condition_variable shut;
    std::map<int, std::shared_ptr<StreamFeed>> feeds;
    std::vector<std::string> taken;         // kinds of media that have a stream
    std::vector<receiver::Format> formats;  // that the camera describes
    bool closed = false;
    bool described = false;        // the camera has described its streams
    std::string described_uri;     // asked for last
    int sameDescribes = 0;         // so many times in a row
    int describes = 0;             // requests for that
    std::optional<Failure> found;  // by the worker
    bool looking = false;          // the worker is asked why there is no connection

    Pipeline(StreamUrl from, ConnectionSettings with, Taker wanted, PictureGrabber* grabs);
    void Configure() const;
    Failure Explain(const BusError& error) const;
    void Shut();

    // ---- GStreamer's callbacks, on its threads ----

    static void OnSdp(GstElement* /*source*/, GstSDPMessage* description, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        const TextOwner text(gst_sdp_message_as_text(description));
        const std::lock_guard<std::mutex> guard(self.mutex);
        self.formats = receiver::Format::FromSdp(text.get());
        self.described = true;
        self.describes = 0;
        self.sameDescribes = 0;
        for (auto& feed : self.feeds)
            feed.second->Close();
        self.feeds.clear();
        self.taken.clear();
    }

    static gboolean OnSelectStream(GstElement* /*source*/, guint number, GstCaps* caps, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        return self.Select(static_cast<int>(number), *gst_caps_get_structure(caps, 0)) ? TRUE : FALSE;
    }

    /// The first stream of each kind that is wanted.
    bool Select(int number, const GstStructure& stream) {
        const std::lock_guard<std::mutex> guard(mutex);
        const receiver::Format format = FormatOf(stream);
        if (closed || std::find(taken.begin(), taken.end(), format.media) != taken.end())
            return false;
        const std::shared_ptr<StreamFeed> feed = taker(format);
        if (!feed)
            return false;
        feeds[number] = feed;
        taken.push_back(format.media);
        // A size beside the headers, for a stream whose headers tell none.
        for (const char* field : {"a-framesize", "a-x-dimensions"})
            if (const auto size = receiver::SizeOfText(Field(stream, field)))
                feed->TakeFallback(size->width, size->height);
        return true;
    }

    /// What the description says of this stream, by its kind and its payload type.
    receiver::Format FormatOf(const GstStructure& stream) const {
        const std::string media = Field(stream, "media");
        gint payloadType = -1;
        gst_structure_get_int(&stream, "payload", &payloadType);
        for (const receiver::Format& format : formats)
            if (format.media == media && format.payloadType == payloadType)
                return format;
        receiver::Format format;  // one that GStreamer understands and we do not: it is timed
        format.media = media;
        format.encoding = Field(stream, "encoding-name");
        format.payloadType = payloadType;
        gint clockRate = 0;
        if (gst_structure_get_int(&stream, "clock-rate", &clockRate) != FALSE && clockRate > 0)
            format.clockRate_Hz = static_cast<std::uint32_t>(clockRate);
        return format;
    }

    /// Counts what is asked for. Beyond the most that a camera may send us on, or ask for credentials, the
    /// request waits until the owner, who is told by `Poll`, has closed the connection: a loop costs nothing,
    /// and a wrong password does not lock the user out.
    static gboolean OnBeforeSend(GstElement* /*source*/, GstRTSPMessage* message, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        GstRTSPMethod method = GST_RTSP_INVALID;
        const gchar* uri = nullptr;
        gst_rtsp_message_parse_request(message, &method, &uri, nullptr);
        if (method != GST_RTSP_DESCRIBE || uri == nullptr)
            return TRUE;
        std::unique_lock<std::mutex> lock(self.mutex);
        self.sameDescribes = self.described_uri == uri ? self.sameDescribes + 1 : 1;
        self.described_uri = uri;
        if (!self.url.user.empty() && self.sameDescribes > kMostTries)
            self.found = FailureOfStatus(GST_RTSP_STS_UNAUTHORIZED, "Unauthorized");
        else if (++self.describes > kMostDescribes)
            self.found =
                Failure{ExitCode::kRefused,
                        fmt::format("the camera sends us in circles: {} redirections", kMostDescribes),
                        "ask the camera's manual for the right URL"};
        else
            return TRUE;
        self.shut.wait(lock, [&self] { return self.closed; });
        return TRUE;
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
        const auto found = self.feeds.find(rtp >= 0 ? rtp : rtcp);
        if (found == self.feeds.end())
            return;
        if (rtp >= 0)
            Watch<&StreamFeed::FeedRtp>(pad, found->second);
        else
            Watch<&StreamFeed::FeedRtcp>(pad, found->second);
    }

    /// What leaves the source has been seen already: it is thrown away, but for pictures that are wanted.
    static void OnSourcePad(GstElement* /*source*/, GstPad* pad, gpointer data) {
        auto& self = *static_cast<Pipeline*>(data);
        GstElement* sink = nullptr;
        if (self.grabber != nullptr) {
            sink = self.grabber->MakeBranch();
        } else {
            sink = gst_element_factory_make("fakesink", nullptr);
            g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
        }
        gst_bin_add(GST_BIN(self.pipeline.get()), sink);
        const GstOwner<GstPad> sinkPad(gst_element_get_static_pad(sink, "sink"));
        gst_pad_link(pad, sinkPad.get());
        gst_element_sync_state_with_parent(sink);
    }

    static void OnElementAdded(GstBin* /*source*/, GstElement* element, gpointer data) {
        if (!IsUdpSource(element))
            return;
        ++static_cast<Pipeline*>(data)->udpSources;
        StampInKernel(element);
    }

    static void OnElementRemoved(GstBin* /*source*/, GstElement* element, gpointer data) {
        if (IsUdpSource(element))
            --static_cast<Pipeline*>(data)->udpSources;
    }
};

RtspReceiver::Pipeline::Pipeline(StreamUrl from, ConnectionSettings with, Taker wanted, PictureGrabber* grabs)
    : url(std::move(from))
    , settings(std::move(with))
    , taker(std::move(wanted))
    , grabber(grabs) {
    pipeline.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
    bus.reset(gst_element_get_bus(pipeline.get()));
    source = gst_element_factory_make("rtspsrc", nullptr);
    Configure();
    g_signal_connect(source, "before-send", G_CALLBACK(&Pipeline::OnBeforeSend), this);
    g_signal_connect(source, "on-sdp", G_CALLBACK(&Pipeline::OnSdp), this);
    g_signal_connect(source, "select-stream", G_CALLBACK(&Pipeline::OnSelectStream), this);
    g_signal_connect(source, "new-manager", G_CALLBACK(&Pipeline::OnNewManager), this);
    g_signal_connect(source, "pad-added", G_CALLBACK(&Pipeline::OnSourcePad), this);
    g_signal_connect(source, "element-added", G_CALLBACK(&Pipeline::OnElementAdded), this);
    g_signal_connect(source, "element-removed", G_CALLBACK(&Pipeline::OnElementRemoved), this);
    gst_bin_add(GST_BIN(pipeline.get()), source);
}

void RtspReceiver::Pipeline::Configure() const {
    constexpr auto kUdp = GST_RTSP_LOWER_TRANS_UDP | GST_RTSP_LOWER_TRANS_UDP_MCAST;
    const int protocols = settings.transport == Transport::kUdp   ? kUdp
                          : settings.transport == Transport::kTcp ? GST_RTSP_LOWER_TRANS_TCP
                                                                  : kUdp | GST_RTSP_LOWER_TRANS_TCP;
    // The owner gives up first and says so; this one only keeps GStreamer from giving up earlier.
    const auto connectTimeOut_us =
        static_cast<guint64>(std::chrono::microseconds(2 * settings.connectTimeOut).count());
    // Nothing is played: no jitter buffer, no retransmission. A closed connection is reported, not opened
    // anew behind our back.
    g_object_set(source, "location", url.location.c_str(), "protocols", protocols, "latency", 0U,
                 "do-retransmission", FALSE, "udp-reconnect", FALSE, "tcp-timeout", connectTimeOut_us,
                 nullptr);
    if (!url.user.empty())
        g_object_set(source, "user-id", url.user.c_str(), "user-pw", url.password.c_str(), nullptr);
    if (!settings.tlsCaFile.empty()) {
        const GstOwner<GTlsDatabase> database(g_tls_file_database_new(settings.tlsCaFile.c_str(), nullptr));
        if (database)
            g_object_set(source, "tls-database", database.get(), nullptr);
    }
    if (settings.tlsInsecure)
        g_object_set(source, "tls-validation-flags", 0, nullptr);
}

void RtspReceiver::Pipeline::Shut() {
    const std::lock_guard<std::mutex> guard(mutex);
    closed = true;
    for (auto& feed : feeds)
        feed.second->Close();
    feeds.clear();
    taker = nullptr;
    g_cancellable_cancel(cancel.get());
    shut.notify_all();
}

RtspReceiver::RtspReceiver(const StreamUrl& url, const ConnectionSettings& settings, Worker& worker,
                           Taker taker, PictureGrabber* grabber)
    : pipeline_(std::make_shared<Pipeline>(url, settings, std::move(taker), grabber))
    , worker_(worker) {}

RtspReceiver::~RtspReceiver() {
    RtspReceiver::Close();
}

void RtspReceiver::Start() {
    worker_.Post([p = pipeline_] { gst_element_set_state(p->pipeline.get(), GST_STATE_PLAYING); });
}

void RtspReceiver::Close() {
    if (!pipeline_)
        return;
    pipeline_->Shut();
    worker_.Post([p = std::move(pipeline_)] { gst_element_set_state(p->pipeline.get(), GST_STATE_NULL); });
    pipeline_.reset();
}

const char* RtspReceiver::Road() const {
    if (!pipeline_)
        return "";
    const std::lock_guard<std::mutex> guard(pipeline_->mutex);
    if (!pipeline_->described)
        return "";
    return pipeline_->udpSources > 0 ? "udp" : "tcp";
}

std::optional<Failure> RtspReceiver::Poll() {
    if (!pipeline_)
        return std::nullopt;
    Pipeline& p = *pipeline_;
    for (;;) {
        const std::lock_guard<std::mutex> guard(p.mutex);
        if (p.found || p.looking)
            return p.found;
        const MessageOwner message(gst_bus_pop(p.bus.get()));
        if (!message)
            return std::nullopt;
        switch (GST_MESSAGE_TYPE(message.get())) {
        case GST_MESSAGE_ERROR: {
            BusError error = ReadError(message.get());
            GstObject* const source = GST_OBJECT(p.source);
            error.decoding = GST_MESSAGE_SRC(message.get()) != source &&
                             gst_object_has_as_ancestor(GST_MESSAGE_SRC(message.get()), source) == FALSE;
            if (p.described || error.status != 0)
                return p.Explain(error);
            p.looking = true;
            worker_.Post([shared = pipeline_] {
                Failure found = ExplainConnection(shared->url, shared->settings, shared->cancel.get());
                const std::lock_guard<std::mutex> lock(shared->mutex);
                shared->found = std::move(found);
            });
            break;
        }
        case GST_MESSAGE_EOS:
            return Failure{ExitCode::kStreamLost, "stream lost: the camera ended it",
                           "look whether the camera restarted, or use --reconnect"};
        default: break;
        }
    }
}

/// With the lock held.
Failure RtspReceiver::Pipeline::Explain(const BusError& error) const {
    if (error.status != 0)
        return FailureOfStatus(error.status, error.reason);
    if (error.decoding)
        return {ExitCode::kInternalError, fmt::format("the pictures cannot be decoded: {}", error.text),
                "install GStreamer's decoders (Debian: gstreamer1.0-libav)"};
    if (feeds.empty())
        return {ExitCode::kNoVideo, "no video: the camera describes no video stream at this path",
                "ask the camera's manual for the path of its video"};
    // The camera took none of the transports: GStreamer keeps its answers to itself.
    if (error.domain == GST_STREAM_ERROR && error.code == GST_STREAM_ERROR_CODEC_NOT_FOUND)
        return FailureOfStatus(GST_RTSP_STS_UNSUPPORTED_TRANSPORT, "Unsupported Transport");
    return {ExitCode::kStreamLost, fmt::format("stream lost: {}", error.text),
            "look whether the camera restarted, or use --reconnect"};
}

std::optional<Failure> CheckTls(const ConnectionSettings& settings) {
    if (settings.tlsCaFile.empty())
        return std::nullopt;
    GError* raw = nullptr;
    const GstOwner<GTlsDatabase> database(g_tls_file_database_new(settings.tlsCaFile.c_str(), &raw));
    if (database)
        return std::nullopt;
    const ErrorOwner error(raw);
    return Failure{ExitCode::kUsage,
                   fmt::format("cannot read the certificates in {}: {}", settings.tlsCaFile, error->message),
                   "--tls-ca takes a file with certificates in PEM"};
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
