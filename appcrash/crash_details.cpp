#include "appcrash/crash_details.h"

namespace orvel {

namespace {

constexpr std::wstring_view kLineBreak = L"\r\n";
constexpr std::wstring_view kLineBreakMarkup = L"<br />";

} // namespace

std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine)
{
    size_t breaks = 0;
    for (size_t at = message.find(kLineBreak); at != message.npos; at = message.find(kLineBreak, at + 2)) {
        ++breaks;
    }
    std::wstring details;
    details.reserve(message.size() + breaks * (kLineBreakMarkup.size() - kLineBreak.size()) + crashTimeLine.size() +
                    hostNameLine.size());
    size_t from = 0;
    for (size_t at = message.find(kLineBreak); at != message.npos; at = message.find(kLineBreak, from)) {
        details.append(message.substr(from, at - from)).append(kLineBreakMarkup);
        from = at + kLineBreak.size();
    }
    details.append(message.substr(from)).append(crashTimeLine).append(hostNameLine);
    return details; // named, so that it is not copied on its way out
}

} // namespace orvel
