#pragma once

/// The library's version, read by the build as well: change it here and nowhere else.
/// The shared library's soname carries the major number, and before 1.0 the minor number as well.
#define CAMCLOCK_VERSION_MAJOR 0
#define CAMCLOCK_VERSION_MINOR 1
#define CAMCLOCK_VERSION_PATCH 0

#define CAMCLOCK_VERSION_STRING "0.1.0"
