#include "apps/camclock/sources/RtspStatus.h"

#include <gtest/gtest.h>

namespace camclock::app {
namespace {

TEST(FailureOfStatus, NamesTheStatusAndHasACodeOfItsOwn) {
    const Failure notFound = FailureOfStatus(404, "Not Found");
    EXPECT_EQ(notFound.code, ExitCode::kNotFound);
    EXPECT_EQ(notFound.what, "not found: the camera has no stream at this path (RTSP status 404 Not Found)");
    EXPECT_EQ(FailureOfStatus(401, "").code, ExitCode::kUnauthorised);
    EXPECT_EQ(FailureOfStatus(403, "").code, ExitCode::kUnauthorised);
    for (const unsigned int status : {400U, 453U, 454U, 461U, 503U, 551U, 302U, 999U})
        EXPECT_EQ(FailureOfStatus(status, "").code, ExitCode::kRefused) << status;
}

TEST(FailureOfStatus, AlwaysTellsWhatToDo) {
    for (unsigned int status = 300; status < 600; ++status) {
        const Failure failure = FailureOfStatus(status, "");
        EXPECT_NE(failure.what.find("(RTSP status " + std::to_string(status) + ")"), std::string::npos);
        EXPECT_FALSE(failure.advice.empty());
    }
}

}  // namespace
}  // namespace camclock::app
