#include <camclock/BinaryStreamParser.h>

namespace camclock {

// The reading itself is inline in the header; the destructor stands here to give the class its one home.
BinaryStreamParser::~BinaryStreamParser() = default;

}  // namespace camclock
