#include "logging/MessageSlot.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <sstream>
#include <string>

namespace camclock::test {
namespace {

std::string TextOf(MessageSlot& slot) {
    std::stringstream out;
    slot.Run(out);
    return out.str();
}

TEST(MessageSlot, RunsASmallCallableAndDestroysIt) {
    const auto token = std::make_shared<int>(7);
    MessageSlot slot;
    slot.Put([token](std::stringstream& out) { out << *token; });
    EXPECT_EQ(token.use_count(), 2);
    EXPECT_EQ(TextOf(slot), "7");
    slot.Clear();
    EXPECT_EQ(token.use_count(), 1);
    slot.Clear();
    slot.Put([](std::stringstream& out) { out << "next"; });
    EXPECT_EQ(TextOf(slot), "next");
}

TEST(MessageSlot, RunsALargeCallableAndDestroysIt) {
    const auto token = std::make_shared<int>(7);
    std::array<char, 4'096> large;
    large.fill('x');
    {
        MessageSlot slot;
        slot.Put([token, large](std::stringstream& out) { out.write(large.data(), large.size()); });
        EXPECT_EQ(token.use_count(), 2);
        EXPECT_EQ(TextOf(slot), std::string(4'096, 'x'));
    }
    EXPECT_EQ(token.use_count(), 1);
}

TEST(MessageSlot, KeepsACallableThatIsMovedIn) {
    auto text = std::make_unique<std::string>("moved");
    MessageSlot slot;
    slot.Put([text = std::move(text)](std::stringstream& out) { out << *text; });
    EXPECT_EQ(TextOf(slot), "moved");
}

}  // namespace
}  // namespace camclock::test
