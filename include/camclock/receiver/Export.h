#pragma once

/// CAMCLOCK_RECEIVER_API marks what the shared library `camclock_receiver` exports.
///
/// The library's own objects (CAMCLOCK_RECEIVER_BUILDING) export, users of the shared library import, and
/// users of the static one (CAMCLOCK_STATIC, which its target defines) need neither.
#if defined(CAMCLOCK_RECEIVER_BUILDING)
#if defined(_WIN32)
#define CAMCLOCK_RECEIVER_API __declspec(dllexport)
#elif defined(__GNUC__)
#define CAMCLOCK_RECEIVER_API __attribute__((visibility("default")))
#else
#define CAMCLOCK_RECEIVER_API
#endif
#elif defined(_WIN32) && !defined(CAMCLOCK_STATIC)
#define CAMCLOCK_RECEIVER_API __declspec(dllimport)
#elif defined(__GNUC__) && !defined(CAMCLOCK_STATIC)
#define CAMCLOCK_RECEIVER_API __attribute__((visibility("default")))
#else
#define CAMCLOCK_RECEIVER_API
#endif
