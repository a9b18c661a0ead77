// What the program does when nobody takes what it has to say.
#include "RunProgram.h"

#include <gtest/gtest.h>

#include <string>

namespace camclock::app::test {
namespace {

TEST(Output, OfAReaderThatIsGoneEndsTheProgramQuietly) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(With(TestCamera::Stream::kH264));
    // Without a --duration: it would run for ever.
    const Outcome outcome =
        RunProgram("watch --transport tcp --format csv " + camera.Url() + " | head -2; exit 0");
    EXPECT_EQ(outcome.OutLines().size(), 2U);
    EXPECT_EQ(outcome.err, "");
}

TEST(Output, OnAFullDiskIsOneLineAndACodeOfItsOwn) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(With(TestCamera::Stream::kH264));
    const Outcome rows = RunProgram("watch --transport tcp --format csv " + camera.Url() + " >/dev/full");
    EXPECT_EQ(rows.exitCode, 11);
    EXPECT_EQ(
        rows.err.find("camclock: cannot write to standard output: No space left on device; make room, or "
                      "write elsewhere\n"),
        0U)
        << rows.err;
    const Outcome log =
        RunProgram("watch --transport tcp --format csv --log-file /dev/full " + camera.Url() + " >/dev/null");
    EXPECT_EQ(log.exitCode, 11);
    EXPECT_NE(log.err.find("camclock: cannot write to /dev/full: No space left on device"), std::string::npos)
        << log.err;
    EXPECT_EQ(RunProgram("inspect --sps 67 >/dev/full").exitCode, 16);
    EXPECT_EQ(RunProgram("--help >/dev/full").exitCode, 11);
    const std::string program = CAMCLOCK_PROGRAM;
    const Outcome summary =
        RunProgram("--version; '" + program + "' watch --transport tcp --format csv --duration 2 " +
                   camera.Url() + " 2>/dev/full; exit $?");
    EXPECT_EQ(summary.exitCode, 11);
}

TEST(Output, ThatIsClosedIsOneLineAndACodeOfItsOwn) {
    CAMCLOCK_REQUIRE_STREAM(TestCamera::Stream::kH264);
    const TestCamera camera(With(TestCamera::Stream::kH264));
    const Outcome outcome = RunProgram("watch --transport tcp --format csv " + camera.Url() + " >&-");
    EXPECT_EQ(outcome.exitCode, 11);
    EXPECT_NE(outcome.err.find("cannot write to standard output: Bad file descriptor"), std::string::npos)
        << outcome.err;
}

}  // namespace
}  // namespace camclock::app::test
