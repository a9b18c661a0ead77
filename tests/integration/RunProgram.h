#pragma once

#include "apps/camclock/sources/TestCamera.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <vector>

namespace camclock::app::test {

/// How a run of the program ended and what it said.
struct Outcome {
    int exitCode = -1;
    std::string out;  ///< standard output
    std::string err;  ///< standard error

    std::vector<std::string> OutLines() const;
};

/// Runs `camclock` with these arguments, as a shell reads them, and waits for its end. `environment` goes in
/// front of it ("NAME=value").
Outcome RunProgram(const std::string& arguments, const std::string& environment = "");

/// The same for another program.
Outcome Run(const std::string& program, const std::string& arguments, const std::string& environment = "");

/// `RunProgram` beside the test, which goes on.
std::future<Outcome> StartProgram(const std::string& arguments);

/// A camera in this process; starts GStreamer and the host's clock with the first one. The test is skipped,
/// with the reason, when GStreamer lacks a plug-in that the camera needs.
TestCamera::Settings With(TestCamera::Stream stream);

/// Waits until the camera has sent so many frames; false after a minute.
bool WaitForFrames(const TestCamera& camera, std::uint64_t frames);

/// What is missing for this kind of stream, or nothing.
std::string MissingPlugin(TestCamera::Stream stream);

}  // namespace camclock::app::test

/// Skips the test, with the reason, where GStreamer cannot make this kind of stream.
#define CAMCLOCK_REQUIRE_STREAM(stream)                                                                      \
    if (const std::string missing = camclock::app::test::MissingPlugin(stream); !missing.empty())            \
    GTEST_SKIP() << missing
