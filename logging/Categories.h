#pragma once

namespace log4cpp {
class Category;
}

namespace camclock::categories {

// The four log4cpp categories of the library. They are fetched once, when the library loads: log4cpp's
// registry is then older than every static object of the application and is destroyed after it.
log4cpp::Category& TimeFilter();          ///< "RTSP.TimeFilter"
log4cpp::Category& TimeFilterInstance();  ///< "RTSP.TimeFilterInstance"
log4cpp::Category& TimeProbe();           ///< "RTSP.TimeProbe"
log4cpp::Category& RawSocket();           ///< "RTSP.RawSocket"

}  // namespace camclock::categories
