#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/Utilities.h>
#include <camclock/receiver/Format.h>

#include <chrono>
#include <iostream>
#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/SimpleLayout.hh>

int main() {
    auto* const appender = new log4cpp::OstreamAppender("console", &std::cout);  // the category takes it over
    appender->setLayout(new log4cpp::SimpleLayout);
    log4cpp::Category& category = log4cpp::Category::getInstance("RTSP.TimeFilter");
    category.addAppender(appender);
    category.setPriority(log4cpp::Priority::INFO);

    camclock::Utilities::getInstance().AnchorToSystemClock();
    camclock::TimeFilter camera("Gate 3: ");
    camera.SetD(std::chrono::milliseconds(250));
    const auto stream = camera.CreateNewTimeFilter();
    const camclock::TimePoint TOC_cam{std::chrono::seconds(1'000'000'000)};
    const camclock::Ticks shift = stream->GetTOC_Host(TOC_cam) - TOC_cam;
    std::cout << "shift: " << shift.count() << " ticks" << std::endl;
    for (const auto& format : camclock::receiver::Format::FromSdp("m=video 0 RTP/AVP 26\n"))
        std::cout << "format: " << format.encoding << " " << format.clockRate_Hz << " Hz" << std::endl;
    return shift == std::chrono::milliseconds(250) ? 0 : 1;
}
