#include "receiver/CodecTable.h"

#include "receiver/Text.h"

namespace camclock::receiver {
namespace {

constexpr std::uint32_t kVideo_Hz = 90'000;

constexpr Encoding kEncodings[] = {
    {"H264", "H.264", kVideo_Hz, Codec::kH264, {"sprop-parameter-sets"}},                 // RFC 6184
    {"H265", "H.265", kVideo_Hz, Codec::kH265, {"sprop-vps", "sprop-sps", "sprop-pps"}},  // RFC 7798
    {"MP4V-ES", "MPEG-4 Visual", kVideo_Hz, Codec::kMpeg4Visual, {"config"}},             // RFC 6416
    {"JPEG", "MJPEG", kVideo_Hz, Codec::kMjpeg},                                          // RFC 2435
    {"H266", "H.266", kVideo_Hz},
    {"VP8", "VP8", kVideo_Hz},
    {"VP9", "VP9", kVideo_Hz},
    {"AV1", "AV1", kVideo_Hz},
    {"H263", "H.263", kVideo_Hz},
    {"H263-1998", "H.263+", kVideo_Hz},
    {"H263-2000", "H.263++", kVideo_Hz},
    {"H261", "H.261", kVideo_Hz},
    {"MPV", "MPEG-1/2 video", kVideo_Hz},
    {"MP2T", "MPEG-2 transport", kVideo_Hz},
    {"CelB", "CellB", kVideo_Hz},
    {"nv", "nv", kVideo_Hz},
    {"raw", "uncompressed video", kVideo_Hz},
    {"vnd.onvif.metadata", "ONVIF metadata", kVideo_Hz},
    {"MPEG4-GENERIC", "MPEG-4 audio", 8'000},  // its rate always stands in the description
    {"MP4A-LATM", "MPEG-4 audio", 90'000},     // RFC 6416, 7.1
    {"opus", "Opus", 48'000},                  // RFC 7587
    {"PCMU", "G.711 mu-law", 8'000},
    {"PCMA", "G.711 A-law", 8'000},
    {"G722", "G.722", 8'000},  // RFC 3551, 4.5.2: 8 kHz although it samples at 16 kHz
    {"G723", "G.723.1", 8'000},
    {"G726-16", "G.726", 8'000},
    {"G726-24", "G.726", 8'000},
    {"G726-32", "G.726", 8'000},
    {"G726-40", "G.726", 8'000},
    {"G728", "G.728", 8'000},
    {"G729", "G.729", 8'000},
    {"GSM", "GSM", 8'000},
    {"AMR", "AMR", 8'000},
    {"AMR-WB", "AMR-WB", 16'000},
    {"MPA", "MPEG audio", 90'000},
    {"L16", "PCM, 16 bits", 44'100},
    {"DVI4", "DVI4", 8'000},
    {"LPC", "LPC", 8'000},
    {"QCELP", "QCELP", 8'000},
    {"CN", "comfort noise", 8'000},
};

struct StaticType {
    int payloadType;
    std::uint32_t clockRate_Hz;
    std::string_view encoding;
};

// RFC 3551, tables 4 and 5.
constexpr StaticType kStaticTypes[] = {
    {0, 8'000, "PCMU"},   {3, 8'000, "GSM"},    {4, 8'000, "G723"},   {5, 8'000, "DVI4"},
    {6, 16'000, "DVI4"},  {7, 8'000, "LPC"},    {8, 8'000, "PCMA"},   {9, 8'000, "G722"},
    {10, 44'100, "L16"},  {11, 44'100, "L16"},  {12, 8'000, "QCELP"}, {13, 8'000, "CN"},
    {14, 90'000, "MPA"},  {15, 8'000, "G728"},  {16, 11'025, "DVI4"}, {17, 22'050, "DVI4"},
    {18, 8'000, "G729"},  {25, 90'000, "CelB"}, {26, 90'000, "JPEG"}, {28, 90'000, "nv"},
    {31, 90'000, "H261"}, {32, 90'000, "MPV"},  {33, 90'000, "MP2T"}, {34, 90'000, "H263"},
};

const StaticType* FindStaticType(int payloadType) {
    for (const StaticType& entry : kStaticTypes)
        if (entry.payloadType == payloadType)
            return &entry;
    return nullptr;
}

}  // namespace

const Encoding* EncodingOf(std::string_view name) {
    for (const Encoding& encoding : kEncodings)
        if (EqualIgnoringCase(encoding.name, name))
            return &encoding;
    return nullptr;
}

const Encoding* EncodingOfPayloadType(int payloadType) {
    const StaticType* entry = FindStaticType(payloadType);
    return entry != nullptr ? EncodingOf(entry->encoding) : nullptr;
}

std::uint32_t ClockRateOfPayloadType(int payloadType) {
    const StaticType* entry = FindStaticType(payloadType);
    return entry != nullptr ? entry->clockRate_Hz : 0;
}

std::string_view NameForPeople(std::string_view encodingName) {
    const Encoding* encoding = EncodingOf(encodingName);
    return encoding != nullptr ? encoding->forPeople : encodingName;
}

}  // namespace camclock::receiver
