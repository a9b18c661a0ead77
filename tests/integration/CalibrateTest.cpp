#include "RunProgram.h"

#include "apps/camclock/sources/EchoPing.h"
#include "apps/camclock/sources/PictureGrabber.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace camclock::app::test {
namespace {

namespace fs = std::filesystem;

/// A directory of the test's own, gone with it.
class OwnDirectory {
public:
    OwnDirectory()
        : path_(fs::path(testing::TempDir()) / ("camclock_calibrate_" + std::to_string(getpid()))) {
        fs::create_directories(path_);
    }
    ~OwnDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

std::string TextOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

constexpr double kDay_us = 86.4e9;

/// "2026-11-21T22:14:07.250000Z" as microseconds after midnight.
double MicrosecondsOfDay(const std::string& text) {
    return std::stod(text.substr(11, 2)) * 3.6e9 + std::stod(text.substr(14, 2)) * 6e7 +
           std::stod(text.substr(17, 9)) * 1e6;
}

/// What a clock of UTC shows: "hh:mm:ss.mmm".
std::string ClockText(TimePoint time) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 86'400'000;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", static_cast<int>(ms / 3'600'000),
                  static_cast<int>(ms / 60'000 % 60), static_cast<int>(ms / 1000 % 60),
                  static_cast<int>(ms % 1000));
    return text.data();
}

/// The line of `calibrate.csv` as RTP time stamp and precise time (us after midnight), and what the truth
/// says about it.
struct Line {
    double precise_us = 0.0;
    double made_us = 0.0;
    std::string reading;
    std::string misread;  // a second late
};

std::vector<Line> ReadCsv(const fs::path& file, const TestCamera& camera) {
    std::vector<Line> lines;
    std::istringstream text(TextOf(file));
    std::string row;
    std::getline(text, row);
    EXPECT_EQ(row, "picture,rtp_ts,precise_host,arrived_host");
    while (std::getline(text, row)) {
        std::vector<std::string> fields;
        std::istringstream split(row);
        for (std::string field; std::getline(split, field, ',');)
            fields.push_back(field);
        const auto truth = camera.TruthOf(static_cast<std::uint32_t>(std::stoul(fields.at(1))));
        EXPECT_TRUE(truth) << row;
        if (!truth)
            continue;
        const auto made_us = static_cast<double>(truth->madeAt_host.time_since_epoch().count() / 10 %
                                                 static_cast<std::int64_t>(kDay_us));
        lines.push_back({MicrosecondsOfDay(fields.at(2)), made_us, ClockText(truth->madeAt_host),
                         ClockText(truth->madeAt_host + std::chrono::seconds(1))});
    }
    return lines;
}

TEST(Calibrate, FindsTheLatencyOfACameraWhoseTruthIsKnown) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    TestCamera::Settings settings = With(TestCamera::Stream::kH264);
    settings.offset = std::chrono::milliseconds(3'723'500);
    const TestCamera camera(settings);
    const OwnDirectory directory;
    // The program opens the readings when the pictures are there: until then a pipe keeps the writer waiting.
    const fs::path readings = directory / "readings";
    ASSERT_EQ(mkfifo(readings.c_str(), 0600), 0);
    std::vector<Line> lines;
    std::thread viewer([&] {
        std::ofstream out(readings);
        lines = ReadCsv(directory / "calibrate.csv", camera);
        for (std::size_t i = 0; i < lines.size(); ++i)
            out << i + 1 << ' ' << (i == 3 ? lines[i].misread : lines[i].reading) << '\n';
    });
    const Outcome outcome =
        RunProgram("calibrate --no-clock --frames 10 --duration 6 --refresh 1000 --pings 3 --output '" +
                       (directory / "").string() + "' --readings '" + readings.string() + "' " + camera.Url(),
                   "TZ=UTC");
    if (outcome.exitCode != 0) {  // it may never have opened the pipe
        const int released = open(readings.c_str(), O_RDONLY | O_NONBLOCK);
        viewer.join();
        close(released);
    } else {
        viewer.join();
    }
    if (outcome.err.find("the pictures cannot be decoded") != std::string::npos)
        GTEST_SKIP() << outcome.err;
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err << outcome.out;
    ASSERT_EQ(lines.size(), 10U);

    double truth_ms = 0.0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i != 3)
            truth_ms += std::remainder(lines[i].precise_us - lines[i].made_us, kDay_us) / 1000.0 / 9.0;
        const std::string png = TextOf(
            directory / ("calibrate-" + std::string(i < 9 ? "0" : "") + std::to_string(i + 1) + ".png"));
        EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
    }
    const std::vector<std::string> said = outcome.OutLines();
    ASSERT_GE(said.size(), 2U);
    EXPECT_EQ(said[said.size() - 2], "left out, more than 100 ms from the median: calibrate-04.png");
    double least_ms = 0.0;
    double mean_ms = 0.0;
    double error_ms = -1.0;
    ASSERT_EQ(std::sscanf(said.back().c_str(),  // NOLINT(cert-err34-c): the count is looked at
                          "--least-latency %lf --mean-latency %lf  (error %lf ms, 9 of 10 frames)", &least_ms,
                          &mean_ms, &error_ms),
              3)
        << said.back();
    // A reading drops what is below a millisecond, and the answer is rounded to a tenth.
    EXPECT_NEAR(least_ms, truth_ms, 0.6);
    EXPECT_GT(least_ms, 0.0);
    EXPECT_GE(mean_ms, least_ms - 0.6);
    EXPECT_GE(error_ms, 0.0);
}

TEST(Calibrate, FailsAsWatchDoes) {
    EXPECT_EQ(RunProgram("calibrate").exitCode, 2);
    EXPECT_EQ(RunProgram("calibrate --frames 9 rtsp://camera/video").exitCode, 2);
    EXPECT_EQ(RunProgram("calibrate http://camera/video").exitCode, 3);
    const Outcome nowhere = RunProgram("calibrate --output /proc/nowhere rtsp://camera/video");
    EXPECT_EQ(nowhere.exitCode, 11);
    EXPECT_EQ(nowhere.err,
              "camclock: cannot write /proc/nowhere; make room, or choose another directory with "
              "--output\n");
}

TEST(PingHost, HearsTheLoopbackInterface) {
    const EchoResult result = PingHost("127.0.0.1", 5, [] { return false; });
    if (result.sent == 0)
        GTEST_SKIP() << result.trouble;
    EXPECT_EQ(result.trouble, "");
    EXPECT_EQ(result.sent, 5);
    EXPECT_EQ(result.answered, 5);
    ASSERT_TRUE(result.least);
    EXPECT_GT(result.least->count(), 0);
}

TEST(PingHost, SaysWhyItHasNoAnswer) {
    const auto never = [] { return false; };
    const EchoResult silent = PingHost("127.0.0.1", 5, [] { return true; });
    EXPECT_EQ(silent.sent, 0);
    if (PingHost("127.0.0.1", 1, never).sent == 0)
        GTEST_SKIP() << "no ICMP socket may be opened here";
    EXPECT_EQ(PingHost("::1", 5, never).trouble, "no IPv4 address is known for this host");
}

// ---- does each picture get the stamp of its own frame?

constexpr int kSide = 64;  // of a picture
constexpr int kBits = 5;
constexpr int kRows = 12;  // of a band
constexpr std::uint32_t kTicksPerFrame = 3600;

/// Paints the n-th picture with n: a band across for each binary digit, dark or bright.
GstPadProbeReturn PaintNumber(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer count) {
    GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    const int number = (*static_cast<int*>(count))++;
    for (int bit = 0; bit < kBits; ++bit)
        gst_buffer_memset(buffer, static_cast<gsize>(bit) * kRows * kSide,
                          (number >> bit & 1) != 0 ? 220 : 30, gsize{kRows} * kSide);
    return GST_PAD_PROBE_OK;
}

void RunToTheEnd(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    const GstOwner<GstBus> bus(gst_element_get_bus(pipeline));
    const MessageOwner message(gst_bus_timed_pop_filtered(
        bus.get(), 20 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    ASSERT_TRUE(message);
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ERROR) {
        GError* raw = nullptr;
        gst_message_parse_error(message.get(), &raw, nullptr);
        const ErrorOwner error(raw);
        ADD_FAILURE() << error->message;
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
}

void ReadNumber(GstElement* /*sink*/, GstBuffer* buffer, GstPad* /*pad*/, gpointer number) {
    auto& read = *static_cast<std::uint32_t*>(number);
    read = 0;
    for (unsigned int bit = 0; bit < kBits; ++bit) {
        guint8 luma = 0;
        gst_buffer_extract(buffer, (gsize{bit} * kRows + kRows / 2) * kSide + kSide / 2, &luma, 1);
        if (luma > 125)
            read |= 1U << bit;
    }
}

std::uint32_t NumberIn(const std::string& png, const fs::path& file) {
    std::ofstream(file, std::ios::binary) << png;
    const GstOwner<GstElement> pipeline(GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(
        ("filesrc location=" + file.string() + " ! pngdec ! videoconvert ! video/x-raw,format=GRAY8 " +
         "! fakesink name=sink signal-handoffs=true")
            .c_str(),
        nullptr))));
    const GstOwner<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
    std::uint32_t number = 0;
    g_signal_connect(sink.get(), "handoff", G_CALLBACK(&ReadNumber), &number);
    RunToTheEnd(pipeline.get());
    return number;
}

class PictureGrabberTest : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(PictureGrabberTest, GivesEachPictureTheStampOfItsFrame) {
    const std::string& encoding = GetParam().second;
    With(TestCamera::Stream::kH264);
    if (const auto missing = PictureGrabber::MissingElement())
        GTEST_SKIP() << missing->Text();
    const std::string launch = "videotestsrc name=maker num-buffers=24 ! "
                               "video/x-raw,format=I420,width=64,height=64,framerate=25/1 ! " +
                               encoding + " name=pay timestamp-offset=0";
    const GstOwner<GstElement> pipeline(
        GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(launch.c_str(), nullptr))));
    ASSERT_TRUE(pipeline);
    const GstOwner<GstElement> maker(gst_bin_get_by_name(GST_BIN(pipeline.get()), "maker"));
    const GstOwner<GstElement> pay(gst_bin_get_by_name(GST_BIN(pipeline.get()), "pay"));
    if (!maker || !pay)
        GTEST_SKIP() << "GStreamer lacks an element of " << encoding;
    int painted = 0;
    const GstOwner<GstPad> made(gst_element_get_static_pad(maker.get(), "src"));
    gst_pad_add_probe(made.get(), GST_PAD_PROBE_TYPE_BUFFER, &PaintNumber, &painted, nullptr);
    PictureGrabber grabber(20, std::chrono::milliseconds(0));
    GstElement* const branch = grabber.MakeBranch();
    gst_bin_add(GST_BIN(pipeline.get()), branch);
    ASSERT_TRUE(gst_element_link(pay.get(), branch));
    RunToTheEnd(pipeline.get());

    const std::vector<PictureGrabber::Picture> pictures = grabber.Take();
    ASSERT_EQ(pictures.size(), 20U);
    const OwnDirectory directory;
    for (const PictureGrabber::Picture& picture : pictures)
        EXPECT_EQ(picture.rtp_ts, kTicksPerFrame * NumberIn(picture.png, directory / "picture.png"));
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, PictureGrabberTest,
    testing::Values(std::pair<std::string, std::string>("H264", "x264enc tune=zerolatency ! rtph264pay"),
                    std::pair<std::string, std::string>("H264WithBFrames",
                                                        "x264enc bframes=2 b-adapt=false ! rtph264pay"),
                    std::pair<std::string, std::string>(
                        "H264InManyPackets",
                        "x264enc tune=zerolatency sliced-threads=true ! rtph264pay mtu=100"),
                    std::pair<std::string, std::string>("MotionJpeg", "jpegenc ! rtpjpegpay")),
    [](const auto& tested) { return tested.param.first; });

}  // namespace
}  // namespace camclock::app::test
