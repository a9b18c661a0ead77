#pragma once

#include <string>
#include <vector>

namespace camclock::receiver {

/// The headers that an SDP (RFC 8866) carries for one of its video streams.
struct SdpStream {
    enum class Kind {
        kH264,         ///< RFC 6184
        kMpeg4Visual,  ///< RFC 6416
        kOther,
    };

    Kind kind = Kind::kOther;
    std::string encoding;  ///< as the rtpmap line writes it; empty for a static payload type
    bool hasHeaders = false;
    std::string headers;  ///< `sprop-parameter-sets`, or `config`, from the fmtp line
};

/// One entry for each payload type of each video stream, in the order of the text. Lines that are no SDP are
/// passed over.
std::vector<SdpStream> StreamsOfSdp(const std::string& text);

}  // namespace camclock::receiver
