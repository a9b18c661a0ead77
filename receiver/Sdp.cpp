#include "receiver/Sdp.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string_view>

namespace camclock::receiver {
namespace {

struct Payload {
    std::string type;  // the number in the m= line
    SdpStream stream;
};

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Cuts the text in front of the first `separator` off `rest`; all of it when there is none.
std::string_view CutOff(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view head = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return head;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

/// "video 5004 RTP/AVP 96 97"
std::vector<Payload> PayloadsOf(std::string_view media) {
    std::vector<Payload> payloads;
    if (CutOff(media, ' ') != "video")
        return payloads;
    CutOff(media, ' ');  // port
    CutOff(media, ' ');  // protocol
    while (!(media = Trimmed(media)).empty())
        payloads.push_back({std::string(CutOff(media, ' ')), {}});
    return payloads;
}

/// "96 H264/90000"
void TakeRtpMap(std::string_view value, SdpStream& stream) {
    stream.encoding = std::string(Trimmed(CutOff(value, '/')));
    if (EqualIgnoringCase(stream.encoding, "H264"))
        stream.kind = SdpStream::Kind::kH264;
    else if (EqualIgnoringCase(stream.encoding, "MP4V-ES"))
        stream.kind = SdpStream::Kind::kMpeg4Visual;
}

/// "packetization-mode=1; sprop-parameter-sets=Z0IAHpWoKA9k,aM48gA=="
void TakeFormatParameters(std::string_view value, SdpStream& stream) {
    while (!value.empty()) {
        std::string_view parameter = CutOff(value, ';');
        const std::string_view name = Trimmed(CutOff(parameter, '='));
        const bool isHeaders =
            EqualIgnoringCase(name, "sprop-parameter-sets")
                ? stream.kind == SdpStream::Kind::kH264
                : EqualIgnoringCase(name, "config") && stream.kind == SdpStream::Kind::kMpeg4Visual;
        if (isHeaders) {
            stream.hasHeaders = true;
            stream.headers = std::string(Trimmed(parameter));
        }
    }
}

/// Calls `take` for the attributes of this name, with the stream of their payload type.
template <class Take>
void ForAttributes(const std::vector<std::string>& lines, std::string_view prefix,
                   std::vector<Payload>& payloads, Take take) {
    for (const std::string& line : lines) {
        if (!StartsWith(line, prefix))
            continue;
        std::string_view value = Trimmed(std::string_view(line).substr(prefix.size()));
        const std::string_view type = CutOff(value, ' ');
        for (Payload& payload : payloads)
            if (payload.type == type)
                take(Trimmed(value), payload.stream);
    }
}

void TakeMedia(const std::vector<std::string>& lines, std::vector<SdpStream>& streams) {
    constexpr std::string_view kMedia = "m=";
    if (lines.empty() || !StartsWith(lines.front(), kMedia))
        return;
    std::vector<Payload> payloads = PayloadsOf(std::string_view(lines.front()).substr(kMedia.size()));
    ForAttributes(lines, "a=rtpmap:", payloads, TakeRtpMap);
    ForAttributes(lines, "a=fmtp:", payloads, TakeFormatParameters);
    for (const Payload& payload : payloads)
        streams.push_back(payload.stream);
}

}  // namespace

std::vector<SdpStream> StreamsOfSdp(const std::string& text) {
    std::vector<SdpStream> streams;
    std::vector<std::string> media;  // the lines from one m= line to the next
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        line = std::string(Trimmed(line));
        if (StartsWith(line, "m=")) {
            TakeMedia(media, streams);
            media.clear();
        }
        media.push_back(line);
    }
    TakeMedia(media, streams);
    return streams;
}

}  // namespace camclock::receiver
