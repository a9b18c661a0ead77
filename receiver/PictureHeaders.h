#pragma once

#include <camclock/MP4VESParser.h>
#include <camclock/MediaPacket.h>
#include <camclock/ParameterSetParser.h>
#include <camclock/receiver/Format.h>

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

/// How large are the pictures of this stream? Reads the headers of the stream's description (SDP) and, when
/// they tell no size, those in the stream itself: parameter sets of H.264 and H.265 that stand whole in one
/// packet, MPEG-4 Visual configurations, and the size that every packet of JPEG carries (RFC 2435, 3.1.5 and
/// 3.1.6; pictures of 2,048 and more samples do not fit there).
///
/// One thread at a time.
///
///     PictureHeaders headers(Codec::kH264, spropParameterSets);
///     headers.Take(packet.payload, packet.size);
///     if (const auto picture = headers.Picture()) ...
class PictureHeaders {
public:
    /// `description`: as `Format::headers`; may be empty.
    PictureHeaders(Codec codec, const std::string& description);

    /// Looks for headers in a packet's payload, for as long as there is no size.
    void Take(const std::uint8_t* payload, std::size_t size);

    /// What somebody else knows of the size (GStreamer's caps). It counts as long as no header tells one.
    void TakeFallback(unsigned int width, unsigned int height);

    std::optional<PictureFormat> Picture() const { return fromHeaders_ ? fromHeaders_ : fallback_; }

private:
    void _TakeDescription(const std::string& description);
    void _TakeNalUnits(const std::uint8_t* payload, std::size_t size);
    void _TakeParameterSet(const std::uint8_t* nal, std::size_t size);
    void _TakeConfiguration(const std::uint8_t* payload, std::size_t size);
    void _TakeJpeg(const std::uint8_t* payload, std::size_t size);
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
