#include "logging/Log4CppWrap.h"

#include "logging/DirectMessage.h"

namespace camclock {

Log4CppWrap::Log4CppWrap(log4cpp::Category& category)
    : category_(&category) {}

Log4CppWrap::~Log4CppWrap() = default;

void Log4CppWrap::Write(std::stringstream& message) {
    if (InfoEnabled(*category_))
        WriteInfo(*category_, message.str());
}

}  // namespace camclock
