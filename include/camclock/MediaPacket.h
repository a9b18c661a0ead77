#pragma once

#include <cstdint>

/// Small enumerations shared by the timing classes, the stream header parsers and
/// the application's packet record.
namespace camclock::MediaPacket {

/// How far the host's time of capture of a packet can be trusted.
enum TimeEstimateTrustIndex : std::int32_t {
    /// The estimate obeys the one physical rule: the frame was captured before the host received it.
    kTrustGood = 0,
    /// Reserved; never issued.
    kTrustReserved = 1,
    /// Time filtering is off, or the estimate lay after the reception although there were sender reports.
    kTrustBad = 2,
};

/// The kind of a frame. Deliberate: P is 3 and B is 2, which is not the order of MPEG-4's vop_coding_type.
enum Frametype : std::int32_t {
    kFrameUnknown = 0,
    kFrameI = 1,       ///< intra-coded, the key frame
    kFrameB = 2,       ///< bidirectionally predicted
    kFrameP = 3,       ///< predicted
    kFrameSprite = 4,  ///< sprite (MPEG-4 Visual S-VOP)
};

/// Layout of the colour samples of a picture.
enum PixelFormat : std::int32_t {
    kPixelUnknown = 0,
    kPixelMonochrome = 1,
    kPixel420 = 2,
    kPixel422 = 3,
    kPixel444 = 4,
};

}  // namespace camclock::MediaPacket
