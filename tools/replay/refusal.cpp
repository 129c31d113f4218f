#include "tools/replay/refusal.h"

#include "tools/replay/xml_reader.h"
#include "tools/utf8.h"

#include <winevt.h>

#include <algorithm>

namespace orvel::replay {

std::wstring Refusal::Text() const
{
    return position == 0 ? reason : reason + L" (at character " + std::to_wstring(position) + L")";
}

Selection MakeSelection(const wchar_t* channel, const wchar_t* query, bool& isStructured)
{
    std::wstring_view text = query != nullptr ? query : L"";
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(L" \t\r\n")));
    isStructured = text.starts_with(L'<');
    try {
        if (isStructured) { // EvtSubscribe page: the channel is ignored with a structured query
            return Selection::OfQueryList(XmlDocument(ToUtf8(text)).Root());
        }
        if (channel == nullptr || *channel == L'\0') {
            throw Refusal{ERROR_EVT_INVALID_CHANNEL_PATH, L"a channel is needed with an XPath query"};
        }
        return Selection::OfChannel(channel, text);
    } catch (QueryError& error) {
        const bool hasPlace = !isStructured || !error.source.empty();
        throw Refusal{error.code, std::move(error.reason), hasPlace ? error.position + 1 : 0,
                      isStructured ? std::move(error.source) : std::wstring(text)};
    } catch (const TextError& error) {
        throw Refusal{ERROR_EVT_MALFORMED_XML_TEXT, L"line " + std::to_wstring(error.line) + L", column " +
                                                        std::to_wstring(error.column) + L": " + error.reason};
    }
}

} // namespace orvel::replay
