#pragma once

#include "logging/TextBuilder.h"
#include "logging/TimeText.h"

#include <ostream>
#include <string>

namespace camclock {

// The texts of all messages: parts one after the other, as a stream would write them, but plain decimals
// whatever the global locale says, and times in the log's one form.

/// The text of a direct message.
template <class... Parts>
std::string Text(const Parts&... parts) {
    TextBuilder text;
    (text.Append(parts), ...);
    return text.ToString();
}

/// Writes the text of a deferred message to the stream that its callable is given.
template <class... Parts>
void Print(std::ostream& out, const Parts&... parts) {
    TextBuilder text;
    (text.Append(parts), ...);
    text.WriteTo(out);
}

}  // namespace camclock
