#include "tools/replay/refusal.h"

#include "tools/replay/log.h"
#include "tools/replay/selection.h"
#include "tools/utf8.h"

#include <winevt.h>

#include <algorithm>
#include <mutex>

namespace orvel::replay {

namespace {

std::mutex refusalLock;
std::wstring lastRefusal;

} // namespace

void SetLastRefusal(std::wstring reason)
{
    const std::lock_guard guard(refusalLock);
    lastRefusal = std::move(reason);
}

std::wstring LastRefusal()
{
    const std::lock_guard guard(refusalLock);
    return lastRefusal;
}

Selection MakeSelection(const wchar_t* channel, const wchar_t* query)
{
    std::wstring_view text = query != nullptr ? query : L"";
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(L" \t\r\n")));
    const bool isStructured = text.starts_with(L'<');
    if (!isStructured && (channel == nullptr || *channel == L'\0')) {
        throw Refusal{ERROR_EVT_INVALID_CHANNEL_PATH, L"an XPath query needs a channel"};
    }
    try { // the channel is ignored with a structured query (EvtSubscribe page)
        return isStructured ? Selection::OfQueryList(ToUtf8(text)) : Selection::OfChannel(channel, text);
    } catch (Refusal& refusal) {
        const std::wstring meaning = refusal.code == kNotSupported
                                         ? L"the replay log does not support the query, though a desktop may: "
                                         : L"the query is not valid by Microsoft's documentation: ";
        refusal.reason = meaning + refusal.reason;
        throw;
    } catch (const TextError& error) {
        throw Refusal{ERROR_EVT_MALFORMED_XML_TEXT, L"the structured query is not well-formed XML: " + error.Text()};
    }
}

void CheckChannels(const Selection& selection, const Log& log)
{
    for (const std::wstring& channel : selection.Channels()) {
        if (HasChannel(log, channel)) {
            continue;
        }
        // An export with events from Security shows that the desktop's account may read it.
        if (EqualNames(channel, L"Security")) {
            throw Refusal{ERROR_ACCESS_DENIED, L"an ordinary account has no access to the channel '" + channel +
                                                   L"'; if the host's account has, declare the channel with --channel"};
        }
        const DWORD code =
            selection.IsStructured() ? ERROR_EVT_CANNOT_OPEN_CHANNEL_OF_QUERY : ERROR_EVT_CHANNEL_NOT_FOUND;
        std::wstring reason = L"the export neither has events of the channel '" + channel +
                              L"' nor declares it; if the desktop has this channel, declare it with --channel or " +
                              L"<replay:channel>. The export has events of ";
        for (const std::wstring& known : log.channels) {
            reason += (known == *log.channels.begin() ? L"'" : L", '") + known + L"'";
        }
        throw Refusal{code, std::move(reason)};
    }
}

} // namespace orvel::replay
