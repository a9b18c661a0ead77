#pragma once

#include "logging/LogWrap.h"

namespace log4cpp {
class Category;
}

namespace camclock {

/// A sink over a log4cpp category: each message becomes one event at INFO, if the category takes INFO.
class Log4CppWrap : public LogWrap {
public:
    /// `category` is not owned; log4cpp's categories live as long as the process.
    explicit Log4CppWrap(log4cpp::Category& category);
    ~Log4CppWrap() override;

    void Write(std::stringstream& message) override;

private:
    log4cpp::Category* category_;
};

}  // namespace camclock
