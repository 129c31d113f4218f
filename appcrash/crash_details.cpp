#include "appcrash/crash_details.h"

namespace orvel {

namespace {

constexpr std::wstring_view kLineBreak = L"\r\n";
constexpr std::wstring_view kLineBreakMarkup = L"<br />";

size_t CountLineBreaks(std::wstring_view text)
{
    size_t count = 0;
    for (size_t at = text.find(kLineBreak); at != text.npos; at = text.find(kLineBreak, at + kLineBreak.size())) {
        ++count;
    }
    return count;
}

} // namespace

std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine)
{
    const size_t growth = CountLineBreaks(message) * (kLineBreakMarkup.size() - kLineBreak.size());
    std::wstring details;
    details.reserve(message.size() + growth + crashTimeLine.size() + hostNameLine.size());
    size_t start = 0;
    for (size_t end = message.find(kLineBreak); end != message.npos; end = message.find(kLineBreak, start)) {
        details.append(message, start, end - start).append(kLineBreakMarkup);
        start = end + kLineBreak.size();
    }
    details.append(message, start).append(crashTimeLine).append(hostNameLine);
    return details;
}

} // namespace orvel
