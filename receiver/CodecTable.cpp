#include "receiver/CodecTable.h"

#include "receiver/Text.h"

namespace camclock::receiver {
namespace {

constexpr std::uint32_t kVideo_Hz = 90'000;

constexpr Encoding kEncodings[] = {
    {"H264", "H.264", kVideo_Hz, Codec::kH264, {"sprop-parameter-sets"}},                 // RFC 6184
    {"H265", "H.265", kVideo_Hz, Codec::kH265, {"sprop-vps", "sprop-sps", "sprop-pps"}},  // RFC 7798
    {"MP4V-ES", "MPEG-4 Visual", kVideo_Hz, Codec::kMpeg4Visual, {"config"}},             // RFC 6416
    {"JPEG", "Motion JPEG", kVideo_Hz, Codec::kMjpeg},                                    // RFC 2435
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
    std::string_view encoding;
    std::uint32_t clockRate_Hz;
};

// RFC 3551, tables 4 and 5.
constexpr StaticType kStaticTypes[] = {
    {0, "PCMU", 8'000},   {3, "GSM", 8'000},    {4, "G723", 8'000},   {5, "DVI4", 8'000},
    {6, "DVI4", 16'000},  {7, "LPC", 8'000},    {8, "PCMA", 8'000},   {9, "G722", 8'000},
    {10, "L16", 44'100},  {11, "L16", 44'100},  {12, "QCELP", 8'000}, {13, "CN", 8'000},
    {14, "MPA", 90'000},  {15, "G728", 8'000},  {16, "DVI4", 11'025}, {17, "DVI4", 22'050},
    {18, "G729", 8'000},  {25, "CelB", 90'000}, {26, "JPEG", 90'000}, {28, "nv", 90'000},
    {31, "H261", 90'000}, {32, "MPV", 90'000},  {33, "MP2T", 90'000}, {34, "H263", 90'000},
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

Codec CodecOf(std::string_view encodingName) {
    const Encoding* encoding = EncodingOf(encodingName);
    return encoding != nullptr ? encoding->codec : Codec::kOther;
}

std::string_view NameForPeople(Codec codec) {
    if (codec != Codec::kOther)
        for (const Encoding& encoding : kEncodings)
            if (encoding.codec == codec)
                return encoding.forPeople;
    return "other";
}

std::string_view NameForPeople(std::string_view encodingName) {
    const Encoding* encoding = EncodingOf(encodingName);
    return encoding != nullptr ? encoding->forPeople : encodingName;
}

}  // namespace camclock::receiver
