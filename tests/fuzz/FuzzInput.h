#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace camclock::fuzz {

// The input in memory of exactly its size, so that the address sanitizer sees the first byte read behind it.
// The parsers take their bytes unqualified, and the fuzzer's own must not be changed.
inline std::vector<unsigned char> Exact(const std::uint8_t* data, std::size_t size) {
    std::vector<unsigned char> bytes;
    bytes.reserve(size);
    bytes.assign(data, data + size);
    return bytes;
}

// What has to hold for every input.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace camclock::fuzz
