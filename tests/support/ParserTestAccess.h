#pragma once

#include <camclock/MP4VESParser.h>
#include <camclock/ParameterSetParser.h>

#include <cstddef>
#include <string>
#include <vector>

namespace camclock {

// Lets the tests at the single steps of the parsers, which no application sees.
struct ParserTestAccess {
    // The bytes that `text` decodes to in a buffer of `capacity` bytes.
    static std::vector<unsigned char> DecodeBase64(std::string text, int capacity = 2048) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(capacity < 0 ? 0 : capacity));
        int length = capacity;
        ParameterSetParser::_DecodeBase64(text, bytes.data(), length);
        bytes.resize(static_cast<std::size_t>(length));
        return bytes;
    }

    static const std::string& SpsText(const ParameterSetParser& parser) { return parser.spsText_; }
    static const std::string& PpsText(const ParameterSetParser& parser) { return parser.ppsText_; }
    static const std::vector<unsigned char>& SpsBytes(const ParameterSetParser& parser) {
        return parser.spsBytes_;
    }
    static const std::vector<unsigned char>& PpsBytes(const ParameterSetParser& parser) {
        return parser.ppsBytes_;
    }

    static void ReadScalingList(ParameterSetParser& parser, unsigned int* list, int size) {
        parser._ReadScalingList(list, size, false);
    }

    // Where the reader stands.
    static unsigned int Position(const ParameterSetParser& parser) {
        return static_cast<unsigned int>(parser.bitPosition_);
    }
    static unsigned int Position(const MP4VESParser& parser) {
        return static_cast<unsigned int>(parser.bitPosition_);
    }
    static const unsigned char* Buffer(const ParameterSetParser& parser) { return parser.buffer_; }
    static const unsigned char* Buffer(const MP4VESParser& parser) { return parser.buffer_; }

    static int NecessaryBits(unsigned int v) { return MP4VESParser::_necessaryBits(v); }
};

}  // namespace camclock
