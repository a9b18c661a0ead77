#pragma once

/// CAMCLOCK_API marks what the shared library exports; everything else stays hidden.
///
/// Three cases: the library's own objects (CAMCLOCK_BUILDING) export, users of the shared library import,
/// and users of the static library (CAMCLOCK_STATIC) need neither.
///
/// MSVC warns (C4251) that exported classes hold members of standard types whose own code is not exported.
/// The warning stands for a real rule, which holds for every C++ library: build the application with the same
/// compiler and the same runtime library as camclock. It is left on.
#if defined(CAMCLOCK_STATIC)
#define CAMCLOCK_API
#elif defined(_WIN32)
#if defined(CAMCLOCK_BUILDING)
#define CAMCLOCK_API __declspec(dllexport)
#else
#define CAMCLOCK_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define CAMCLOCK_API __attribute__((visibility("default")))
#else
#define CAMCLOCK_API
#endif
