#include "RunProgram.h"

#include "apps/camclock/sources/RtspReceiver.h"
#include <camclock/Receiver.h>

#include <gst/gst.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace camclock::app::test {
namespace {

std::string NameOfNextFile() {
    static std::atomic<int> count{0};
    return testing::TempDir() + "camclock_" + std::to_string(getpid()) + "_" + std::to_string(++count) +
           ".err";
}

std::string TakeFile(const std::string& name) {
    std::ifstream file(name);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::remove(name.c_str());
    return text;
}

}  // namespace

std::vector<std::string> Outcome::OutLines() const {
    std::vector<std::string> lines;
    std::istringstream text(out);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

Outcome RunProgram(const std::string& arguments, const std::string& environment) {
    return Run(CAMCLOCK_PROGRAM, arguments, environment);
}

Outcome Run(const std::string& program, const std::string& arguments, const std::string& environment) {
    const std::string errors = NameOfNextFile();
    // A program that hangs is ended, so that no run outlives its test.
    const std::string command =
        environment + " timeout --kill-after=5 60 '" + program + "' " + arguments + " 2>'" + errors + "'";
    Outcome outcome;
    std::FILE* pipe =
        popen(command.c_str(), "r");  // NOLINT(cert-env33-c): a test of the program as users start it
    if (pipe == nullptr)
        return outcome;
    std::array<char, 4096> piece{};
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), pipe))
        outcome.out.append(piece.data(), size);
    const int status = pclose(pipe);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.err = TakeFile(errors);
    return outcome;
}

std::future<Outcome> StartProgram(const std::string& arguments) {
    return std::async(std::launch::async, [arguments] { return RunProgram(arguments); });
}

TestCamera::Settings With(TestCamera::Stream stream) {
    static const bool prepared = [] {
        receiver::Now();
        return !PrepareGstreamer().has_value();
    }();
    EXPECT_TRUE(prepared);
    TestCamera::Settings settings;
    settings.stream = stream;
    return settings;
}

bool WaitForFrames(const TestCamera& camera, std::uint64_t frames) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (camera.FramesSent() < frames) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::string MissingPlugin(TestCamera::Stream stream) {
    With(stream);
    const char* encoder = "mulawenc";
    switch (stream) {
    case TestCamera::Stream::kH264: encoder = "x264enc"; break;
    case TestCamera::Stream::kMpeg4Visual: encoder = "avenc_mpeg4"; break;
    case TestCamera::Stream::kMotionJpeg: encoder = "jpegenc"; break;
    case TestCamera::Stream::kAudioOnly: break;
    }
    GstElementFactory* factory = gst_element_factory_find(encoder);
    if (factory == nullptr)
        return std::string("GStreamer has no element ") + encoder;
    gst_object_unref(factory);
    return "";
}

}  // namespace camclock::app::test
