// Queries: the first line is one, the lines after it are what the event holds.
#include "tools/fuzz/fuzz.h"
#include "tools/replay/selection.h"

using namespace orvel::replay;

template <typename Parse>
static auto Try(std::wstring_view text, const Parse& parse) -> std::optional<decltype(parse(text))>
{
    try {
        return parse(text);
    } catch (const QueryError& error) {
        assert(error.position <= text.size() && !error.reason.empty());
        assert(error.code == kInvalidQuery || error.code == kQueryTooComplex);
        return std::nullopt;
    }
}

void orvel::Fuzz(std::wstring_view lines, std::string_view)
{
    const std::wstring text(TakeUntil(lines, L'\n'));
    Event event{{L"Event"}, L"", L"Application"};
    event.xml.children.push_back({L"System", {}, L"", {{L"EventID", {}, std::wstring(TakeUntil(lines, L'\n'))}}});
    const std::wstring time(TakeUntil(lines, L'\n'));
    event.xml.children.front().children.push_back({L"TimeCreated", {{L"SystemTime", time}}});
    event.xml.children.push_back({L"EventData"});
    while (!lines.empty()) {
        Node data{L"Data", {{L"Name", L"Path"}}, std::wstring(TakeUntil(lines, L'\n'))};
        event.xml.children.back().children.push_back(std::move(data));
    }

    const auto selector = [](std::wstring_view query) { return Query::Parse(query); };
    const auto query = Try(text, selector);
    const bool matches = query && query->Matches(event.xml);
    // Blanks around a query mean nothing, another predicate never selects more, and a selection judges likewise.
    const auto padded = Try(L"\t " + text + L"\r\n ", selector);
    assert(padded.has_value() == query.has_value() && (!padded || padded->Matches(event.xml) == matches));
    const auto narrower = Try(text + L"[EventID>=1000]", selector);
    assert(!narrower || !narrower->Matches(event.xml) || matches);
    const auto select = [](std::wstring_view all) { return Selection::OfChannel(L"APPLICATION", all); };
    const auto selection = Try(text, select);
    assert(text.empty() ||
           (selection.has_value() == query.has_value() && (!query || selection->Matches(event) == matches)));
    // Whatever is left out is explained, and nothing else.
    assert(!query || query->Explain(event.xml).empty() == matches);
    // The path of a value is a query, too, and its plain form leads to a value whenever it does itself.
    if (const auto path = Try(text, &Query::ParseValuePath)) {
        const auto plain = Query::ParseValuePath(path->PlainPath());
        assert(query && plain.PlainPath() == path->PlainPath() && (!matches || plain.Matches(event.xml)));
    }
}
