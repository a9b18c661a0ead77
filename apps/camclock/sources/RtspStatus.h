#pragma once

#include "apps/camclock/Failure.h"

#include <string>

namespace camclock::app {

/// What a camera's refusal means, and what to do about it. `status`: the RTSP status code (RFC 2326, 11);
/// `reason`: the camera's own words, which may be empty.
Failure FailureOfStatus(unsigned int status, const std::string& reason);

}  // namespace camclock::app
