#include "apps/camclock/sources/FrameAssembler.h"

#include "receiver/FrameType.h"

#include <utility>

namespace camclock::app {
namespace {

/// A packet this far behind the newest is late; one further behind starts a new run of sequence numbers, as
/// after a restart of the camera (RFC 3550, A.1: MAX_MISORDER).
constexpr int kMaxMisorder = 100;

}  // namespace

FrameAssembler::FrameAssembler(TypeReader typeOf, FrameSink sink)
    : typeOf_(std::move(typeOf))
    , sink_(std::move(sink)) {}

FrameAssembler::FrameAssembler(receiver::Codec codec, FrameSink sink)
    : FrameAssembler([codec](const std::uint8_t* payload,
                             std::size_t size) { return receiver::FrameKindOf(codec, payload, size).type; },
                     std::move(sink)) {}

void FrameAssembler::Add(const receiver::RtpPacket& packet) {
    if (started_) {
        const auto step =
            static_cast<std::int16_t>(static_cast<std::uint16_t>(packet.seqnum - highestSeqnum_));
        if (step <= 0 && step > -kMaxMisorder) {
            if (step < 0 && lost_ > 0)
                --lost_;
            if (open_ && step < 0 && packet.RTP_ts == frame_.RTP_ts)
                _Append(packet);
            else
                ++late_;
            return;
        }
        if (step > 1)
            lost_ += static_cast<std::uint64_t>(step) - 1;
    }
    started_ = true;
    highestSeqnum_ = packet.seqnum;

    if (open_ && packet.RTP_ts != frame_.RTP_ts)
        _Complete();
    if (!open_ && anyCompleted_ && packet.RTP_ts == completed_ts_)
        return;  // the marker bit came before the frame's end: the frame has been delivered
    _Append(packet);
    if (packet.marker)
        _Complete();
}

void FrameAssembler::Finish() {
    _Complete();
    started_ = false;
    anyCompleted_ = false;
}

void FrameAssembler::_Append(const receiver::RtpPacket& packet) {
    if (!open_) {
        frame_ = Frame{};
        frame_.RTP_ts = packet.RTP_ts;
        frame_.SSRC = packet.SSRC;
        frame_.seqnum = packet.seqnum;
        frame_.TOR_host = packet.TOR_host;
        open_ = true;
    }
    ++frame_.packets;
    frame_.bytes += packet.size;
    if (frame_.type == MediaPacket::kFrameUnknown)
        frame_.type = typeOf_(packet.payload, packet.size);
}

void FrameAssembler::_Complete() {
    if (!open_)
        return;
    open_ = false;
    completed_ts_ = frame_.RTP_ts;
    anyCompleted_ = true;
    sink_(frame_);
}

}  // namespace camclock::app
