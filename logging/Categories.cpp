#include "logging/Categories.h"

#include <log4cpp/Category.hh>

namespace camclock::categories {
namespace {

struct Categories {
    log4cpp::Category& timeFilter = log4cpp::Category::getInstance("RTSP.TimeFilter");
    log4cpp::Category& timeFilterInstance = log4cpp::Category::getInstance("RTSP.TimeFilterInstance");
    log4cpp::Category& timeProbe = log4cpp::Category::getInstance("RTSP.TimeProbe");
    log4cpp::Category& rawSocket = log4cpp::Category::getInstance("RTSP.RawSocket");
};

// A function-local object, so that a static object of the application, linked statically, finds it made.
const Categories& All() {
    static const Categories all;
    return all;
}

[[maybe_unused]] const Categories& fetchedAtLoad = All();

}  // namespace

log4cpp::Category& TimeFilter() {
    return All().timeFilter;
}

log4cpp::Category& TimeFilterInstance() {
    return All().timeFilterInstance;
}

log4cpp::Category& TimeProbe() {
    return All().timeProbe;
}

log4cpp::Category& RawSocket() {
    return All().rawSocket;
}

}  // namespace camclock::categories
