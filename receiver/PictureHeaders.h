#pragma once

#include "receiver/RtpPacket.h"

#include <camclock/MP4VESParser.h>
#include <camclock/MediaPacket.h>
#include <camclock/ParameterSetParser.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace camclock::receiver {

/// What the pictures of a stream are like.
struct PictureFormat {
    unsigned int width = 0;
    unsigned int height = 0;
    MediaPacket::PixelFormat pixels = MediaPacket::kPixelUnknown;
};

/// "1920x1080 4:2:0"
std::string PictureText(const PictureFormat& picture);

/// The size that a description gives beside its headers: "640-480" (a=framesize) or "640,480"
/// (a=x-dimensions).
std::optional<PictureFormat> SizeOfText(const std::string& text);

/// The text of a pixel format: "4:2:0"; "unknown".
const char* PixelFormatText(MediaPacket::PixelFormat format);

/// How large are the pictures of this stream, and of what kind is the frame that begins in this packet? Reads
/// the headers of the stream's description (SDP) and, when they tell no size, those in the stream itself.
///
/// One thread at a time.
///
///     PictureHeaders headers(Codec::kH264, spropParameterSets);
///     headers.Take(packet.payload, packet.size);
///     if (const auto picture = headers.Picture()) ...
class PictureHeaders {
public:
    /// `description`: sprop-parameter-sets (RFC 6184) or config (RFC 6416) of the SDP; may be empty.
    PictureHeaders(Codec codec, const std::string& description);

    /// Looks for headers in a packet's payload, for as long as there is no size. Parameter sets that are
    /// spread over packets are not found.
    void Take(const std::uint8_t* payload, std::size_t size);

    /// What somebody else knows of the size (GStreamer's caps). It counts as long as no header tells one.
    void TakeFallback(unsigned int width, unsigned int height);

    std::optional<PictureFormat> Picture() const { return fromHeaders_ ? fromHeaders_ : fallback_; }

    /// The kind of the frame that this packet is a part of, as far as the packet tells.
    MediaPacket::Frametype TypeOf(const std::uint8_t* payload, std::size_t size);

private:
    void _TakeParameterSet(const std::uint8_t* nal, std::size_t size);
    void _TakeAggregate(const std::uint8_t* units, std::size_t size);
    void _TakeSps();
    void _TakeLayer();

    Codec codec_;
    ParameterSetParser h264_;
    MP4VESParser mpeg4_;
    std::vector<unsigned char> bytes_;  // what the parsers read: they take no constant bytes
    std::optional<PictureFormat> fromHeaders_;
    std::optional<PictureFormat> fallback_;
};

}  // namespace camclock::receiver
