#pragma once

#include <log4cpp/Category.hh>
#include <log4cpp/CategoryStream.hh>

#include <string>

namespace camclock {

// A direct message: ask the category first, and build the text only if it is wanted.
//
//     if (InfoEnabled(categories::RawSocket()))
//         WriteInfo(categories::RawSocket(), Text("Bytes read: ", count));

inline bool InfoEnabled(const log4cpp::Category& category) {
    return category.isPriorityEnabled(log4cpp::Priority::INFO);
}

/// Writes one event at INFO, on the calling thread.
inline void WriteInfo(log4cpp::Category& category, const std::string& message) {
    category.getStream(log4cpp::Priority::INFO) << message;
}

}  // namespace camclock
