#pragma once

#include <camclock/receiver/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace camclock::receiver {

/// The payload formats whose frame types are read. Every other stream is timed all the same.
enum class Codec {
    kOther,        ///< times only, no frame types
    kH264,         ///< RFC 6184
    kH265,         ///< RFC 7798
    kMpeg4Visual,  ///< RFC 6416
    kMjpeg,        ///< RFC 2435: every frame is a key frame
};

/// One stream of a session description: what the receiver must know before the first packet.
struct Format {
    Codec codec = Codec::kOther;
    std::string media = "video";  ///< "video", "audio", "application"
    std::string encoding;         ///< as in a=rtpmap, or the name that RFC 3551 gives a static payload type
    std::uint32_t clockRate_Hz = 90'000;  ///< of the stream's RTP clock
    int payloadType = -1;  ///< 0 to 127; -1: packets of every payload type belong to the stream
    std::string headers;   ///< sprop-parameter-sets (H.264); sprop-vps, -sps, -pps joined by commas (H.265);
                           ///< config (MPEG-4 Visual, hexadecimal); may be empty
    std::string control;   ///< a=control: the stream's own URL or the end of it

    /// The streams of a session description (RFC 8866), in its order: one entry for each payload type of each
    /// media line, "m=video 0 RTP/AVP 96 97" gives two. Static payload types need no a=rtpmap (RFC 3551); a
    /// clock rate that is missing or no number is the encoding's usual one. Lines that are none, or are
    /// broken, or longer than 16 KiB, are passed over, and so is what follows the first 256 streams; what is
    /// no description at all gives no stream. Any text, in linear time; throws nothing but want of memory.
    static CAMCLOCK_RECEIVER_API std::vector<Format> FromSdp(const std::string& sdp);
};

}  // namespace camclock::receiver
