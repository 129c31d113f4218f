// The entries and the structured query that a tree makes. Each line is an element: a blank per level, then fields that
// tabs separate: its name, attributes with '=', and its text.
#include "tools/fuzz/fuzz.h"
#include "tools/replay/export_reader.h"
#include "tools/replay/selection.h"

using namespace orvel::replay;

static Node ReadTree(std::wstring_view text)
{
    Node root{L"QueryList"};
    for (size_t line = 1; !text.empty(); ++line) {
        std::wstring_view fields = orvel::TakeUntil(text, L'\n');
        Node* parent = &root;
        for (; fields.starts_with(L' '); fields.remove_prefix(1)) {
            parent = parent->children.empty() ? parent : &parent->children.back();
        }
        Node& node = parent->children.emplace_back();
        node.line = node.column = line;
        for (node.name = orvel::TakeUntil(fields, L'\t'); !fields.empty();) {
            std::wstring_view field = orvel::TakeUntil(fields, L'\t');
            if (field.find(L'=') == field.npos) {
                node.text = field;
            } else {
                const std::wstring name(orvel::TakeUntil(field, L'='));
                node.attributes.emplace_back(name, field);
            }
        }
    }
    return root;
}

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    std::wstring broken;
    for (const wchar_t unit : text) {
        broken += unit == L'\n' && !broken.ends_with(L'\r') ? L"\r\n" : std::wstring(1, unit);
    }
    assert(WithCarriageReturns(text) == broken);

    Node root = ReadTree(text);
    const size_t count = root.children.size();
    try {
        const Selection selection = Selection::OfQueryList(root);
        assert(!selection.Channels().empty() && !selection.Matches({{L"Event"}, L"", L"elsewhere="}));
    } catch (const QueryError& error) {
        assert((error.code == kInvalidQuery || error.code == kQueryTooComplex) && !error.reason.empty());
    }
    try {
        const auto entries = MakeEntries(std::move(root));
        assert(entries.size() == count);
        for (const Entry& entry : entries) {
            if (const auto* const event = std::get_if<Event>(&entry)) {
                assert(!event->channel.empty() && event->xml.Child(L"RenderingInfo") == nullptr);
                assert(event->xml.Attribute(L"replay:error") == nullptr);
                assert(!event->message || WithCarriageReturns(*event->message) == *event->message);
            } else {
                assert(std::get<Action>(entry).node.name.starts_with(kReplayPrefix));
            }
        }
    } catch (const TextError& error) {
        assert(error.line >= 1 && error.line == error.column && !error.reason.empty());
    }
}
