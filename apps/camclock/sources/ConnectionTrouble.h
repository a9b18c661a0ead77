#pragma once

#include "apps/camclock/Failure.h"
#include "apps/camclock/sources/StreamUrl.h"
#include "apps/camclock/sources/WatchSettings.h"

#include <gio/gio.h>

namespace camclock::app {

/// Why could this camera not be reached? GStreamer does not tell a refusal from an unknown name, so that the
/// way is gone once more, step by step: name, connection, TLS. Takes up to two seconds a step; `cancel` ends
/// it at once.
Failure ExplainConnection(const StreamUrl& url, const ConnectionSettings& settings, GCancellable* cancel);

}  // namespace camclock::app
