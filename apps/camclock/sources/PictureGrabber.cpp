#include "apps/camclock/sources/PictureGrabber.h"

#include <gst/rtp/gstrtpbuffer.h>

#include <fmt/format.h>

#include <utility>

namespace camclock::app {
namespace {

void Stamp(GstBuffer* buffer, GstCaps* kind) {
    GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
    if (gst_rtp_buffer_map(buffer, GST_MAP_READ, &rtp) == FALSE)
        return;
    const guint32 RTP_ts = gst_rtp_buffer_get_timestamp(&rtp);
    gst_rtp_buffer_unmap(&rtp);
    gst_buffer_add_reference_timestamp_meta(buffer, kind, RTP_ts, GST_CLOCK_TIME_NONE);
}

GstOwner<GstPad> PadOf(GstElement* element, const char* name) {
    return GstOwner<GstPad>(gst_element_get_static_pad(element, name));
}

}  // namespace

PictureGrabber::PictureGrabber(int pictures, std::chrono::milliseconds spread)
    : pictures_(pictures)
    , spread_(spread)
    , stampKind_(gst_caps_new_empty_simple("timestamp/x-rtp")) {}

std::optional<Failure> PictureGrabber::MissingElement() {
    for (const char* element : {"decodebin", "videoconvert", "pngenc"}) {
        const GstOwner<GstElementFactory> factory(gst_element_factory_find(element));
        if (!factory)
            return Failure{ExitCode::kInternalError, fmt::format("GStreamer has no element {}", element),
                           "install its base and good plug-ins (Debian: gstreamer1.0-plugins-base, -good)"};
    }
    return std::nullopt;
}

GstElement* PictureGrabber::MakeBranch() {
    GstElement* const branch = gst_bin_new(nullptr);
    GstElement* const decoder = gst_element_factory_make("decodebin", nullptr);
    GstElement* const convert = gst_element_factory_make("videoconvert", nullptr);
    GstElement* const encoder = gst_element_factory_make("pngenc", nullptr);
    GstElement* const sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "sync", FALSE, "async", FALSE, "signal-handoffs", TRUE, nullptr);
    gst_bin_add_many(GST_BIN(branch), decoder, convert, encoder, sink, nullptr);
    gst_element_link_many(convert, encoder, sink, nullptr);

    const GstOwner<GstPad> packets = PadOf(decoder, "sink");
    gst_element_add_pad(branch, gst_ghost_pad_new("sink", packets.get()));
    constexpr auto kBuffers =
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    gst_pad_add_probe(packets.get(), kBuffers, &PictureGrabber::_OnPacket, this, nullptr);
    gst_pad_add_probe(PadOf(convert, "sink").get(), GST_PAD_PROBE_TYPE_BUFFER, &PictureGrabber::_OnPicture,
                      this, nullptr);
    g_signal_connect(decoder, "pad-added", G_CALLBACK(&PictureGrabber::_OnDecoded), convert);
    g_signal_connect(sink, "handoff", G_CALLBACK(&PictureGrabber::_OnPng), this);
    return branch;
}

void PictureGrabber::_OnDecoded(GstElement* /*decoder*/, GstPad* pad, gpointer data) {
    const GstOwner<GstPad> sink = PadOf(GST_ELEMENT(data), "sink");
    if (gst_pad_is_linked(sink.get()) == FALSE)
        gst_pad_link(pad, sink.get());
}

GstPadProbeReturn PictureGrabber::_OnPacket(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
    GstCaps* const kind = static_cast<PictureGrabber*>(data)->stampKind_.get();
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        GstBufferList* list = gst_buffer_list_make_writable(GST_PAD_PROBE_INFO_BUFFER_LIST(info));
        for (guint i = 0; i < gst_buffer_list_length(list); ++i)
            Stamp(gst_buffer_list_get_writable(list, i), kind);
        GST_PAD_PROBE_INFO_DATA(info) = list;
    } else {
        GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
        Stamp(buffer, kind);
        GST_PAD_PROBE_INFO_DATA(info) = buffer;
    }
    return GST_PAD_PROBE_OK;
}

/// With the lock held: is the next one due?
bool PictureGrabber::_Wants(Clock::time_point now) {
    if (!first_)
        first_ = now;
    return chosen_ < pictures_ && now - *first_ >= spread_ * (chosen_ + 1) / (pictures_ + 1);
}

/// Only what is wanted goes on to be encoded.
GstPadProbeReturn PictureGrabber::_OnPicture(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
    auto& self = *static_cast<PictureGrabber*>(data);
    const GstReferenceTimestampMeta* stamp =
        gst_buffer_get_reference_timestamp_meta(GST_PAD_PROBE_INFO_BUFFER(info), self.stampKind_.get());
    const std::lock_guard<std::mutex> guard(self.mutex_);
    if (stamp == nullptr || !self._Wants(Clock::now()))
        return GST_PAD_PROBE_DROP;
    ++self.chosen_;
    self.inEncoder_.push_back(static_cast<std::uint32_t>(stamp->timestamp));
    return GST_PAD_PROBE_OK;
}

/// The encoder keeps the order, and makes one PNG of each picture.
void PictureGrabber::_OnPng(GstElement* /*sink*/, GstBuffer* buffer, GstPad* /*pad*/, gpointer data) {
    auto& self = *static_cast<PictureGrabber*>(data);
    std::string png(gst_buffer_get_size(buffer), '\0');
    gst_buffer_extract(buffer, 0, png.data(), png.size());
    const std::lock_guard<std::mutex> guard(self.mutex_);
    if (self.inEncoder_.empty())
        return;
    self.made_.push_back({self.inEncoder_.front(), std::move(png)});
    self.inEncoder_.pop_front();
}

std::vector<PictureGrabber::Picture> PictureGrabber::Take() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(made_, {});
}

}  // namespace camclock::app
