// AvformatRecorder URL SECONDS: the frames of an RTSP camera, received by FFmpeg's libavformat, with their
// times of capture. libavformat hands out neither RTP packets nor sender reports, but what it has made of
// them:
//   pts                       the RTP time stamp, unwrapped, less that of the first packet
//   AVProducerReferenceTime   from the first sender report on: the camera's time of this pts by the latest
//   report
// so that a pair of both is as good as a report.
#include <camclock/Receiver.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace receiver = camclock::receiver;

/// In stdio's buffer: nothing that waits for somebody.
void Write(const receiver::Frame& frame) {
    const std::chrono::duration<double> captured = frame.captured_host.time_since_epoch();
    std::printf("%u captured at %.6f, trust %d\n", frame.rtp_ts, captured.count(), int(frame.trust));
}

/// NTP time (RFC 3550, 4) of microseconds since 1970.
std::uint64_t NtpOf(std::int64_t sinceUnix_us) {
    constexpr std::uint64_t kFrom1900To1970_s = 2'208'988'800;
    const auto us = static_cast<std::uint64_t>(sinceUnix_us);
    return (us / 1'000'000 + kFrom1900To1970_s) << 32U | ((us % 1'000'000) << 32U) / 1'000'000;
}

receiver::Format FormatOf(const AVStream& stream) {
    receiver::Format format;
    format.clockRate_Hz = static_cast<std::uint32_t>(stream.time_base.den);
    switch (stream.codecpar->codec_id) {
    case AV_CODEC_ID_H264: format.codec = receiver::Codec::kH264; break;
    case AV_CODEC_ID_HEVC: format.codec = receiver::Codec::kH265; break;
    case AV_CODEC_ID_MPEG4: format.codec = receiver::Codec::kMpeg4Visual; break;
    case AV_CODEC_ID_MJPEG: format.codec = receiver::Codec::kMjpeg; break;
    default: break;
    }
    return format;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: AvformatRecorder URL SECONDS\n");
        return 1;
    }
    // Without the parsers every RTP packet comes out as it arrives; with them a frame would come out only
    // when the next one begins. Without buffering nothing is read ahead. Of several streams libavformat would
    // shift the time stamps when the first report comes: it gets the video alone.
    AVFormatContext* context = avformat_alloc_context();
    context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOBUFFER;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "rtsp_transport", "udp", 0);
    av_dict_set(&options, "allowed_media_types", "video", 0);
    const int opened = avformat_open_input(&context, argv[1], nullptr, &options);
    av_dict_free(&options);
    if (opened < 0) {
        std::fprintf(stderr, "AvformatRecorder: the camera cannot be opened\n");
        return 1;
    }

    receiver::Camera camera("gate 3");
    const auto stream = camera.AddStream("video", FormatOf(*context->streams[0]), Write);
    receiver::Frame frame;  // that is being put together
    std::int64_t reported_pts = AV_NOPTS_VALUE;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    AVPacket* packet = av_packet_alloc();
    while (std::chrono::steady_clock::now() < end && av_read_frame(context, packet) >= 0) {
        const auto arrival = receiver::Now();
        const auto rtp_ts = static_cast<std::uint32_t>(packet->pts);
        if (frame.packets > 0 && frame.rtp_ts != rtp_ts) {
            stream->FeedFrame(frame);
            frame.packets = 0;
        }
        // One report a second is enough.
        const void* data = av_packet_get_side_data(packet, AV_PKT_DATA_PRFT, nullptr);
        if (data != nullptr && (reported_pts == AV_NOPTS_VALUE ||
                                packet->pts - reported_pts >= context->streams[0]->time_base.den)) {
            const auto* time = static_cast<const AVProducerReferenceTime*>(data);
            stream->FeedReport(0, NtpOf(time->wallclock), rtp_ts, arrival);
            reported_pts = packet->pts;
        }
        if (frame.packets == 0) {
            frame = receiver::Frame();
            frame.rtp_ts = rtp_ts;
            frame.arrived_host = arrival;
        }
        ++frame.packets;
        frame.bytes += static_cast<std::uint64_t>(packet->size);
        av_packet_unref(packet);
        camera.Poll();
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
}
