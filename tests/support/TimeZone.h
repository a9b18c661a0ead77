#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace camclock::test {

/// The process's local time zone while one of these lives: "UTC0", "AAA-1" (one
/// hour east), "AAA5" (five west).
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        const char* const old = std::getenv("TZ");
        hadOld_ = old != nullptr;
        if (hadOld_)
            old_ = old;
        Set(zone);
    }

    ~TimeZone() { Set(hadOld_ ? old_.c_str() : nullptr); }

    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void Set(const char* zone) {
#if defined(_WIN32)
        _putenv_s("TZ", zone != nullptr ? zone : "");  // an empty value takes the variable away
        _tzset();
#else
        if (zone != nullptr)
            setenv("TZ", zone, 1);
        else
            unsetenv("TZ");
        tzset();
#endif
    }

    bool hadOld_ = false;
    std::string old_;
};

}  // namespace camclock::test
