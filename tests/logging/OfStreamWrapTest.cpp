#include "logging/OfStreamWrap.h"

#include "logging/AsynchronousLog.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>

namespace camclock::test {
namespace {

TEST(OfStreamWrap, WritesTheTextsUnchangedAndClosesTheFile) {
    const TemporaryDirectory directory;
    const std::string name = (directory.Path() / "log.txt").string();
    {
        OfStreamWrap sink(new std::ofstream(name));
        std::stringstream first("no line end");
        std::stringstream second(", then one\n");
        sink.Write(first);
        sink.Write(second);
    }
    EXPECT_EQ(directory.Read("log.txt"), "no line end, then one\n");
}

TEST(OfStreamWrap, WritesTheWholeTextWhateverHasBeenReadOfIt) {
    const TemporaryDirectory directory;
    const std::string name = (directory.Path() / "log.txt").string();
    {
        OfStreamWrap sink(std::make_unique<std::ofstream>(name, std::ios::binary));
        std::stringstream message("one two");
        std::string word;
        message >> word;
        sink.Write(message);
        std::stringstream empty;
        sink.Write(empty);
    }
    EXPECT_EQ(directory.Read("log.txt"), "one two");
}

TEST(OfStreamWrap, LosesWhatGoesToAFileThatFailedToOpen) {
    const TemporaryDirectory directory;
    auto file = std::make_unique<std::ofstream>((directory.Path() / "missing" / "log.txt").string());
    ASSERT_FALSE(file->is_open());
    AsynchronousLog log(new OfStreamWrap(std::move(file)));
    const auto ran = std::make_shared<std::promise<void>>();
    log.Post([](std::stringstream& out) { out << "lost\n"; });
    log.Post([ran](std::stringstream&) { ran->set_value(); });
    EXPECT_EQ(ran->get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_FALSE(directory.Has("missing"));
}

}  // namespace
}  // namespace camclock::test
