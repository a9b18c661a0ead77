#include "receiver/CodecTable.h"
#include "receiver/Text.h"

#include <camclock/receiver/Format.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace camclock::receiver {
namespace {

// What no camera's description comes near to: a text of any length takes linear time and bounded memory.
constexpr std::size_t kLongestLine = 16'384;
constexpr std::size_t kMostFormats = 256;

constexpr std::size_t kPayloadTypes = 128;

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Cuts the text in front of the first of `separators` off `rest`; all of it when there is none.
std::string_view CutOff(std::string_view& rest, std::string_view separators) {
    const std::size_t end = rest.find_first_of(separators);
    const std::string_view head = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return head;
}

std::string_view CutOffWord(std::string_view& rest) {
    rest = Trimmed(rest);
    return CutOff(rest, " \t");
}

/// Nothing for what is no number, is followed by something else, or is greater than `largest`.
template <class Number>
bool ReadNumber(std::string_view text, Number largest, Number& number) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > largest)
        return false;
    number = value;
    return true;
}

bool ReadPayloadType(std::string_view text, std::size_t& payloadType) {
    return ReadNumber(text, kPayloadTypes - 1, payloadType);
}

/// Calls `take` with the name and the value of each parameter of "name=value; name=value".
template <class Take>
void ForParameters(std::string_view parameters, Take take) {
    while (!parameters.empty()) {
        std::string_view value = CutOff(parameters, ";");
        const std::string_view name = Trimmed(CutOff(value, "="));
        take(name, Trimmed(value));
    }
}

/// One media description: its m= line and the attributes up to the next one.
class Media {
public:
    /// "video 5004 RTP/AVP 96 97"
    void Begin(std::string_view value) {
        media_.clear();
        for (const char c : CutOffWord(value))
            media_ += Lower(c);
        CutOffWord(value);  // port
        CutOffWord(value);  // protocol
        control_ = {};
        count_ = 0;
        entryOf_.fill(kNone);
        while (!(value = Trimmed(value)).empty()) {
            std::size_t payloadType = 0;
            if (ReadPayloadType(CutOffWord(value), payloadType) && entryOf_[payloadType] == kNone)
                _Add(payloadType);
        }
    }

    /// "rtpmap:96 H264/90000"
    void TakeAttribute(std::string_view attribute) {
        const std::string_view name = Trimmed(CutOff(attribute, ":"));
        if (EqualIgnoringCase(name, "control")) {
            control_ = Trimmed(attribute);
            return;
        }
        const bool isMap = EqualIgnoringCase(name, "rtpmap");
        if (!isMap && !EqualIgnoringCase(name, "fmtp"))
            return;
        std::size_t payloadType = 0;
        if (!ReadPayloadType(CutOffWord(attribute), payloadType) || entryOf_[payloadType] == kNone)
            return;
        Entry& entry = entries_[entryOf_[payloadType]];
        if (isMap)
            _TakeMap(attribute, entry.format);
        else
            entry.parameters.push_back(attribute);
    }

    void End(std::vector<Format>& formats) {
        for (std::size_t i = 0; i < count_ && formats.size() < kMostFormats; ++i) {
            Entry& entry = entries_[i];
            entry.format.media = media_;
            entry.format.control = control_;
            _TakeHeaders(entry);
            formats.push_back(std::move(entry.format));
        }
        count_ = 0;
        entryOf_.fill(kNone);
    }

private:
    struct Entry {
        Format format;
        std::vector<std::string_view> parameters;  // of a=fmtp, which may stand in front of the a=rtpmap
    };

    static constexpr std::uint8_t kNone = 0xFF;

    void _Add(std::size_t number) {
        const int payloadType = static_cast<int>(number);
        Entry& entry = entries_[count_];
        entry = Entry{};
        entry.format.payloadType = payloadType;
        if (const Encoding* encoding = EncodingOfPayloadType(payloadType)) {
            entry.format.encoding = encoding->name;
            entry.format.codec = encoding->codec;
            entry.format.clockRate_Hz = ClockRateOfPayloadType(payloadType);
        }
        entryOf_[number] = static_cast<std::uint8_t>(count_++);
    }

    static void _TakeMap(std::string_view map, Format& format) {
        const std::string_view name = Trimmed(CutOff(map, "/"));
        if (name.empty())
            return;
        const Encoding* encoding = EncodingOf(name);
        const bool isOther = !EqualIgnoringCase(format.encoding, name);
        format.encoding = name;
        format.codec = encoding != nullptr ? encoding->codec : Codec::kOther;
        if (isOther)  // than the static type's, whose rate stands
            format.clockRate_Hz = encoding != nullptr ? encoding->clockRate_Hz : Format().clockRate_Hz;
        std::uint32_t rate = 0;
        if (ReadNumber(Trimmed(CutOff(map, "/")), std::numeric_limits<std::uint32_t>::max(), rate) &&
            rate != 0)
            format.clockRate_Hz = rate;
    }

    static void _TakeHeaders(Entry& entry) {
        const Encoding* encoding = EncodingOf(entry.format.encoding);
        if (encoding == nullptr || encoding->headerParameters.front().empty())
            return;
        const auto& names = encoding->headerParameters;
        auto values = names;
        values.fill({});
        for (const std::string_view parameters : entry.parameters)
            ForParameters(parameters, [&](std::string_view name, std::string_view value) {
                for (std::size_t i = 0; i < names.size(); ++i)
                    if (!names[i].empty() && EqualIgnoringCase(name, names[i]))
                        values[i] = value;
            });
        for (const std::string_view value : values) {
            if (value.empty())
                continue;
            if (!entry.format.headers.empty())
                entry.format.headers += ',';
            entry.format.headers += value;
        }
    }

    std::string media_;
    std::string_view control_;
    std::array<Entry, kPayloadTypes> entries_;
    std::size_t count_ = 0;
    std::array<std::uint8_t, kPayloadTypes> entryOf_{};  // by payload type
};

}  // namespace

std::vector<Format> Format::FromSdp(const std::string& sdp) {
    std::vector<Format> formats;
    const auto media = std::make_unique<Media>();
    bool inMedia = false;  // attributes of the session say nothing about one stream
    std::string_view rest = sdp;
    while (!rest.empty() && formats.size() < kMostFormats) {
        const std::string_view line = Trimmed(CutOff(rest, "\r\n"));
        if (line.size() < 2 || line[1] != '=')
            continue;
        const bool isTooLong = line.size() > kLongestLine;
        if (line[0] == 'm') {
            media->End(formats);
            if (!isTooLong)
                media->Begin(line.substr(2));
            inMedia = !isTooLong;
        } else if (line[0] == 'a' && inMedia && !isTooLong) {
            media->TakeAttribute(line.substr(2));
        }
    }
    media->End(formats);
    return formats;
}

}  // namespace camclock::receiver
