#include "apps/camclock/commands/WatchOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace camclock::app {
namespace {

std::string Text(const std::vector<NamedUrl>& urls) {
    std::string text;
    for (const NamedUrl& url : urls)
        text += url.camera + "|" + url.url + "\n";
    return text;
}

TEST(ReadCamera, SplitsAtCommasBeforeUrlsOnly) {
    EXPECT_EQ(Text(*ReadCamera("gate=rtsp://a/1?x=1,2,rtsps://a/2")),
              "gate|rtsp://a/1?x=1,2\ngate|rtsps://a/2\n");
    EXPECT_EQ(Text(*ReadCamera("gate 3=rtsp://a/1?x=y")), "gate 3|rtsp://a/1?x=y\n");
}

TEST(ReadCamera, RefusesWhatHasNoNameOrNoUrl) {
    for (const char* text : {"", "gate", "gate=", "=rtsp://a/1", "rtsp://a/1?x=y"})
        EXPECT_FALSE(ReadCamera(text)) << text;
}

TEST(ReadCameraList, TakesUrlsAloneAndWithNames) {
    int wrong = 0;
    const auto urls =
        ReadCameraList("# all of them\n\nrtsp://a/1\r\n  gate 3\t rtsp://u:p=1@b/1,rtsp://b/2  \n"
                       "yard=rtsp://c/1\n",
                       wrong);
    ASSERT_TRUE(urls);
    EXPECT_EQ(Text(*urls), "|rtsp://a/1\ngate 3|rtsp://u:p=1@b/1\ngate 3|rtsp://b/2\nyard|rtsp://c/1\n");
}

TEST(ReadCameraList, NamesTheLineThatIsWrong) {
    int wrong = 0;
    EXPECT_FALSE(ReadCameraList("rtsp://a/1\n\ngate\n", wrong));
    EXPECT_EQ(wrong, 3);
}

TEST(ChoiceOf, NamesWhatIsUnknownAndWhatIsNot) {
    const std::vector<std::string> names{"table", "csv", "json"};
    EXPECT_EQ(ChoiceOf("--format", "CSV", names), 1U);
    try {
        ChoiceOf("--format", "xml", names);
        FAIL();
    } catch (const CLI::ValidationError& error) {
        EXPECT_STREQ(error.what(), "--format: unknown value xml; it takes table, csv or json");
    }
}

}  // namespace
}  // namespace camclock::app
