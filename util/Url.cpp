#include <camclock/Utilities.h>

#include <algorithm>
#include <cctype>
#include <iterator>

namespace camclock {
namespace {

template <class Iterator>
void AppendLowerCase(Iterator from, Iterator to, std::string& text) {
    text.reserve(text.size() + static_cast<std::size_t>(to - from));
    std::transform(from, to, std::back_inserter(text),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
}

}  // namespace

void Utilities::SplitURL(std::string url, std::string& protocol, std::string& host, std::string& path,
                         std::string& query) {
    static constexpr char kSeparator[] = "://";
    const auto separator = std::search(url.cbegin(), url.cend(), kSeparator, kSeparator + 3);
    AppendLowerCase(url.cbegin(), separator, protocol);
    if (separator == url.cend())
        return;

    auto start = separator + 3;
    const auto at = std::find(start, url.cend(), '@');
    if (at != url.cend())
        start = at + 1;  // the user information is nobody's business

    const auto slash = std::find(start, url.cend(), '/');
    // Deliberate: the colon is looked for to the end of the URL, not only up to the slash
    // (SplitUrl.ColonInThePathEndsTheHost).
    const auto colon = std::find(start, url.cend(), ':');
    AppendLowerCase(start, colon == url.cend() ? slash : colon, host);

    const auto question = std::find(slash, url.cend(), '?');
    path.assign(slash, question);
    query.assign(question == url.cend() ? question : question + 1, url.cend());
}

std::string Utilities::GetHostFromUrl(std::string url) {
    std::string protocol;
    std::string host;
    std::string path;
    std::string query;
    SplitURL(std::move(url), protocol, host, path, query);
    return host;
}

}  // namespace camclock
