#include "appcrash/crash_details.h"

#include "host/text_search.h"

#include <algorithm>

namespace orvel {

namespace {

constexpr std::wstring_view kLineBreak = L"\r\n";
constexpr std::wstring_view kLineBreakMarkup = L"<br />";

wchar_t* Append(wchar_t* to, std::wstring_view text)
{
    return std::copy(text.begin(), text.end(), to);
}

// Gives the end of what was written.
wchar_t* AppendWithMarkup(wchar_t* to, std::wstring_view message)
{
    for (size_t from = 0;;) {
        const size_t at = CopyToCharacter(message, kLineBreak.front(), from, to);
        to += at - from;
        if (at == message.size()) {
            return to;
        }
        if (StartsWith(message.substr(at), kLineBreak)) {
            to = Append(to, kLineBreakMarkup);
            from = at + kLineBreak.size();
        } else {
            *to++ = message[at];
            from = at + 1;
        }
    }
}

} // namespace

std::unique_ptr<wchar_t[]> BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                                             std::wstring_view hostNameLine)
{
    const size_t breaks = CountPairs(message, kLineBreak.front(), kLineBreak.back());
    auto details = std::make_unique_for_overwrite<wchar_t[]>(message.size() +
                                                             breaks * (kLineBreakMarkup.size() - kLineBreak.size()) +
                                                             crashTimeLine.size() + hostNameLine.size() + 1);
    wchar_t* const end = Append(Append(AppendWithMarkup(details.get(), message), crashTimeLine), hostNameLine);
    *end = L'\0';
    return details;
}

} // namespace orvel
