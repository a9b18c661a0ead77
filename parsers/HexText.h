#pragma once

#include <string>
#include <vector>

namespace camclock {

// The bytes of hex text, two characters each; an odd last character is left out. A pair is read as strtol in
// base 16 and the C locale would read it. `bytes` is replaced, its memory used again.
void DecodeHexText(const std::string& text, std::vector<unsigned char>& bytes);

}  // namespace camclock
