#include "appcrash/crash_details.h"

#include "host/text_search.h"

namespace orvel {

namespace {

constexpr std::wstring_view kLineBreak = L"\r\n";
constexpr std::wstring_view kLineBreakMarkup = L"<br />";

} // namespace

std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine)
{
    // An upper bound, and exact unless a CR stands alone, which is rare; what is then too much is given back.
    const size_t breaks = CountCharacter(message, kLineBreak.front());
    std::wstring details;
    details.reserve(message.size() + breaks * (kLineBreakMarkup.size() - kLineBreak.size()) + crashTimeLine.size() +
                    hostNameLine.size());
    size_t from = 0;
    for (size_t at = FindCharacter(message, kLineBreak.front(), 0); at + 1 < message.size();
         at = FindCharacter(message, kLineBreak.front(), at)) {
        if (message[++at] == kLineBreak.back()) {
            details.append(message.substr(from, at - 1 - from)).append(kLineBreakMarkup);
            from = ++at;
        }
    }
    details.append(message.substr(from)).append(crashTimeLine).append(hostNameLine);
    details.shrink_to_fit();
    return details; // named, so that it is not copied on its way out
}

} // namespace orvel
