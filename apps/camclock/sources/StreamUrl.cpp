#include "apps/camclock/sources/StreamUrl.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <string_view>

namespace camclock::app {
namespace {

bool IsSpaceOrControl(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F;
}

bool IsHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<int> ReadPort(const std::string& text) {
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), isDigit))
        return std::nullopt;
    const int port = std::stoi(text);
    return port > 0 && port <= 65'535 ? std::optional<int>(port) : std::nullopt;
}

/// "host", "host:port", "[v6]" or "[v6]:port" (RFC 3986, 3.2.2).
bool ReadHostAndPort(const std::string& text, StreamUrl& url) {
    std::size_t end = 0;
    if (!text.empty() && text.front() == '[') {
        end = text.find(']');
        if (end == std::string::npos)
            return false;
        url.host = text.substr(1, end - 1);
        url.ipv6 = true;
        // Hexadecimal groups, an IPv4 tail, and a zone ("%25eth0", RFC 6874).
        const std::string address = url.host.substr(0, url.host.find('%'));
        if (address.find(':') == std::string::npos ||
            !std::all_of(address.begin(), address.end(),
                         [](char c) { return IsHex(c) || c == ':' || c == '.'; }))
            return false;
        ++end;
    } else {
        end = std::min(text.find(':'), text.size());
        url.host = text.substr(0, end);
        if (url.host.find_first_of("[]\"<>\\^`{|}") != std::string::npos)
            return false;
    }
    if (url.host.empty())
        return false;
    if (end == text.size())
        return true;
    const std::optional<int> port = text[end] == ':' ? ReadPort(text.substr(end + 1)) : std::nullopt;
    url.port = port.value_or(0);
    return port.has_value();
}

/// Resolves "%40" and its like (RFC 3986, 2.1); what is no escape stays.
std::string Unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && IsHex(text[i + 1]) && IsHex(text[i + 2])) {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

/// Some cameras take their credentials in the path, "/user=admin&password=x_channel=1": from there on it is
/// not shown.
std::string PathWithoutSecrets(const std::string& path) {
    const std::string lower = Lower(path);
    std::size_t end = path.size();
    for (const std::string_view word : {"password=", "passwd=", "pass=", "pwd=", "token="})
        end = std::min(end, lower.find(word));
    return end == path.size() ? path : path.substr(0, end) + "...";
}

}  // namespace

std::optional<StreamUrl> StreamUrl::Parse(const std::string& text) {
    const std::size_t separator = text.find("://");
    if (separator == std::string::npos || std::any_of(text.begin(), text.end(), IsSpaceOrControl))
        return std::nullopt;
    StreamUrl url;
    url.scheme = Lower(text.substr(0, separator));
    if (url.scheme != "rtsp" && url.scheme != "rtsps")
        return std::nullopt;

    const std::string whole = text.substr(0, text.find('#'));
    if (text.find('@', whole.size()) != std::string::npos)
        return std::nullopt;  // not a fragment: a password whose '#' is not escaped
    const std::size_t start = separator + 3;
    if (whole.size() < start)
        return std::nullopt;
    const std::size_t pathStart = std::min(whole.find_first_of("/?", start), whole.size());
    const std::size_t queryStart = std::min(whole.find('?', pathStart), whole.size());
    std::string authority = whole.substr(start, pathStart - start);

    const std::size_t at = authority.rfind('@');
    if (at != std::string::npos) {
        const std::string userInfo = authority.substr(0, at);
        authority.erase(0, at + 1);
        const std::size_t colon = userInfo.find(':');
        url.user = Unescaped(userInfo.substr(0, colon));
        if (colon != std::string::npos)
            url.password = Unescaped(userInfo.substr(colon + 1));
    }
    if (!ReadHostAndPort(authority, url))
        return std::nullopt;

    const std::string front = url.scheme + "://" + authority;
    // GStreamer's own default is 554 for both schemes.
    const std::string port = url.port == 0 ? ":" + std::to_string(url.PortOrDefault()) : "";
    url.location = front + (url.scheme == "rtsps" ? port : "") + whole.substr(pathStart);
    url.label = front + PathWithoutSecrets(whole.substr(pathStart, queryStart - pathStart));
    return url;
}

int StreamUrl::PortOrDefault() const {
    constexpr int kRtsp = 554;
    constexpr int kRtsps = 322;
    if (port != 0)
        return port;
    return scheme == "rtsps" ? kRtsps : kRtsp;
}

std::string StreamUrl::WithoutSecrets(const std::string& text) {
    std::string result = text;
    const std::size_t separator = result.find("://");
    const std::size_t start = separator == std::string::npos ? 0 : separator + 3;
    // Where a slash stands unescaped in a password, the last at sign is the one that ends it.
    const std::size_t at = result.rfind('@');
    if (at != std::string::npos && at >= start)
        result.erase(start, at + 1 - start);
    result.erase(std::min(result.find_first_of("?#"), result.size()));
    return result;
}

}  // namespace camclock::app
