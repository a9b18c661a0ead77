#include "apps/camclock/commands/LogSetup.h"

#include <fmt/format.h>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/Priority.hh>

#include <fstream>
#include <iostream>
#include <memory>

namespace camclock::app {
namespace {

/// The category takes the appender over, and the appender its layout.
void AddAppender(log4cpp::Category& category, std::unique_ptr<log4cpp::Appender> appender) {
    auto layout = std::make_unique<log4cpp::PatternLayout>();
    layout->setConversionPattern("%d{%Y-%m-%d %H:%M:%S.%l} %c: %m%n");
    appender->setLayout(layout.release());
    category.addAppender(appender.release());
}

}  // namespace

std::optional<Failure> SetUpLog(const LogSettings& settings) {
    log4cpp::Category& category = log4cpp::Category::getInstance("RTSP");
    category.setAdditivity(false);
    category.removeAllAppenders();
    if (!settings.verbose && settings.file.empty()) {
        category.setPriority(log4cpp::Priority::WARN);  // nobody listens: no message is put together
        return std::nullopt;
    }
    category.setPriority(log4cpp::Priority::INFO);
    if (settings.verbose)
        AddAppender(category, std::make_unique<log4cpp::OstreamAppender>("standard error", &std::cerr));
    if (!settings.file.empty()) {
        if (!std::ofstream(settings.file, std::ios::app))
            return Failure{ExitCode::kOutput, fmt::format("cannot write the log file {}", settings.file),
                           "choose another with --log-file"};
        AddAppender(category, std::make_unique<log4cpp::FileAppender>("log file", settings.file));
    }
    return std::nullopt;
}

}  // namespace camclock::app
