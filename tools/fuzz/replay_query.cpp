// Evaluates the first line as a query. The next lines are the event's ID, its time and its data.
#include "tools/fuzz/fuzz.h"
#include "tools/replay/selection.h"

using namespace orvel::replay;

template <typename Parse>
static auto Try(std::wstring_view text, const Parse& parse) -> std::optional<decltype(parse(text))>
{
    try {
        return parse(text);
    } catch (const Refusal& refusal) {
        assert(refusal.position <= text.size() && !refusal.reason.empty());
        assert(refusal.code == kInvalidQuery || refusal.code == kQueryTooComplex || refusal.code == kNotSupported);
        return std::nullopt;
    }
}

static Node& AddChild(Node& parent, const wchar_t* name)
{
    Node& child = parent.children.emplace_back();
    child.name = name;
    return child;
}

void orvel::Fuzz(std::wstring_view lines, std::string_view)
{
    const std::wstring text(TakeUntil(lines, L'\n'));
    Event event{Node({}), {}, L"Application"};
    event.xml.name = L"Event";
    Node& system = AddChild(event.xml, L"System");
    AddChild(system, L"EventID").text = TakeUntil(lines, L'\n');
    AddChild(system, L"TimeCreated").attributes.emplace_back(L"SystemTime", TakeUntil(lines, L'\n'));
    Node& data = AddChild(event.xml, L"EventData");
    while (!lines.empty()) {
        Node& item = AddChild(data, L"Data");
        item.attributes.emplace_back(L"Name", L"Path");
        item.text = TakeUntil(lines, L'\n');
    }

    const auto selector = [](std::wstring_view query) { return Query::Parse(query); };
    const auto query = Try(text, selector);
    const bool matches = query && query->Matches(event.xml);
    // Surrounding blanks and parentheses do not change a result, another predicate never selects more, and a selection
    // agrees with its query.
    const auto padded = Try(L"\t " + text + L"\r\n ", selector);
    assert(padded.has_value() == query.has_value() && (!padded || padded->Matches(event.xml) == matches));
    const auto enclosed = Try(L"(" + text + L")", selector);
    assert(!enclosed || !query || enclosed->Matches(event.xml) == matches);
    const auto narrower = Try(text + L"[EventID>=1000]", selector);
    assert(!narrower || !narrower->Matches(event.xml) || matches);
    const auto select = [](std::wstring_view all) { return Selection::OfChannel(L"APPLICATION", all); };
    const auto selection = Try(text, select);
    assert(text.empty() ||
           (selection.has_value() == query.has_value() && (!query || selection->Matches(event) == matches)));
    assert(!query || matches || !query->Explain(event.xml).Text().empty());
    // A value path is also a query, and its plain form selects a value whenever the path does.
    if (const auto path = Try(text, &Query::ParseValuePath)) {
        const auto plain = Query::ParseValuePath(path->PlainPath());
        assert(query && plain.PlainPath() == path->PlainPath() && (!matches || plain.Matches(event.xml)));
    }
}
