#include "apps/camclock/sources/StreamUrl.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace camclock::app {
namespace {

bool IsSpaceOrControl(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F;
}

bool IsPort(const std::string& text) {
    if (text.empty() || text.size() > 5)
        return false;
    if (!std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; }))
        return false;
    const int port = std::stoi(text);
    return port > 0 && port <= 65'535;
}

/// "host", "host:port", "[v6]" or "[v6]:port".
bool IsHostAndPort(const std::string& text) {
    std::size_t hostEnd = 0;
    if (!text.empty() && text.front() == '[') {
        hostEnd = text.find(']');
        if (hostEnd == std::string::npos || hostEnd == 1)
            return false;
        ++hostEnd;
    } else {
        hostEnd = std::min(text.find(':'), text.size());
    }
    if (hostEnd == 0)
        return false;
    return hostEnd == text.size() || (text[hostEnd] == ':' && IsPort(text.substr(hostEnd + 1)));
}

/// Resolves "%40" and its like (RFC 3986, 2.1); what is no escape stays.
std::string Unescaped(const std::string& text) {
    const auto isHex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2])) {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

}  // namespace

std::optional<StreamUrl> StreamUrl::Parse(const std::string& text) {
    const std::size_t separator = text.find("://");
    if (separator == std::string::npos || std::any_of(text.begin(), text.end(), IsSpaceOrControl))
        return std::nullopt;
    std::string scheme = text.substr(0, separator);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (scheme != "rtsp" && scheme != "rtsps")
        return std::nullopt;

    const std::size_t start = separator + 3;
    const std::size_t pathStart = std::min(text.find_first_of("/?", start), text.size());
    std::string authority = text.substr(start, pathStart - start);

    StreamUrl url;
    const std::size_t at = authority.rfind('@');
    if (at != std::string::npos) {
        const std::string userInfo = authority.substr(0, at);
        authority.erase(0, at + 1);
        const std::size_t colon = userInfo.find(':');
        url.user = Unescaped(userInfo.substr(0, colon));
        if (colon != std::string::npos)
            url.password = Unescaped(userInfo.substr(colon + 1));
    }
    if (!IsHostAndPort(authority))
        return std::nullopt;

    url.location = scheme + "://" + authority + text.substr(pathStart);
    url.label = WithoutSecrets(url.location);
    return url;
}

std::string WithoutSecrets(const std::string& text) {
    std::string result = text;
    const std::size_t separator = result.find("://");
    const std::size_t start = separator == std::string::npos ? 0 : separator + 3;
    const std::size_t at = result.rfind('@');
    if (at != std::string::npos && at >= start)
        result.erase(start, at + 1 - start);
    result.erase(std::min(result.find('?'), result.size()));
    return result;
}

}  // namespace camclock::app
