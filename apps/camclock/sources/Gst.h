#pragma once

#include <gst/gst.h>

#include <memory>

namespace camclock::app {

/// Owners of GStreamer's and GLib's objects: each gives its reference back at its end.
struct GstUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GstOwner = std::unique_ptr<T, GstUnref>;

struct CapsUnref {
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using CapsOwner = std::unique_ptr<GstCaps, CapsUnref>;

struct MessageUnref {
    void operator()(GstMessage* message) const { gst_message_unref(message); }
};
using MessageOwner = std::unique_ptr<GstMessage, MessageUnref>;

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};
using TextOwner = std::unique_ptr<gchar, GFree>;

struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorOwner = std::unique_ptr<GError, ErrorFree>;

}  // namespace camclock::app
