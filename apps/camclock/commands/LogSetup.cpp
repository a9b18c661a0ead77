#include "apps/camclock/commands/LogSetup.h"

#include "apps/camclock/views/Output.h"

#include <fmt/format.h>
#include <log4cpp/Category.hh>
#include <log4cpp/LayoutAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/Priority.hh>

#include <memory>

namespace camclock::app {
namespace {

/// A category's way to an `Output`, which notices when it cannot be written. Every message is handed over at
/// once.
class OutputAppender : public log4cpp::LayoutAppender {
public:
    OutputAppender(const std::string& name, Output& output)
        : LayoutAppender(name)
        , output_(output) {
        auto layout = std::make_unique<log4cpp::PatternLayout>();
        layout->setConversionPattern("%d{%Y-%m-%d %H:%M:%S.%l} %c: %m");
        setLayout(layout.release());
    }

    void close() override {}

protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        output_.Lines(_getLayout().format(event));
        output_.Flush(std::chrono::milliseconds(0));
    }

private:
    Output& output_;
};

/// Lives as long as the process: the library's threads may write to the very end.
std::unique_ptr<Output>& LogFile() {
    static std::unique_ptr<Output> file;
    return file;
}

void AddAppender(log4cpp::Category& category, const std::string& name, Output& output) {
    category.addAppender(std::make_unique<OutputAppender>(name, output).release());  // which it takes over
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
        AddAppender(category, "standard error", Output::Error());
    if (!settings.file.empty()) {
        LogFile() = Output::Append(settings.file);
        if (!LogFile())
            return Failure{ExitCode::kOutput, fmt::format("cannot write the log file {}", settings.file),
                           "choose another with --log-file"};
        AddAppender(category, "log file", *LogFile());
    }
    return std::nullopt;
}

std::optional<Failure> LogTrouble() {
    return LogFile() ? LogFile()->Trouble() : std::nullopt;
}

}  // namespace camclock::app
