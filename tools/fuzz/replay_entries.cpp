// Reads a document as a structured query and as an export.
#include "tools/fuzz/fuzz.h"
#include "tools/replay/export_reader.h"
#include "tools/replay/selection.h"

using namespace orvel::replay;

void orvel::Fuzz(std::wstring_view text, std::string_view bytes)
{
    std::pmr::wstring broken;
    for (const wchar_t unit : text) {
        broken += unit == L'\n' && !broken.ends_with(L'\r') ? L"\r\n" : std::pmr::wstring(1, unit);
    }
    assert(WithCarriageReturns(text) == broken);

    try {
        const Selection selection = Selection::OfQueryList(bytes);
        assert(!selection.Channels().empty() && !selection.Matches({Node({}), L"", L"elsewhere="}));
    } catch (const Refusal& refusal) {
        assert(refusal.code == kInvalidQuery || refusal.code == kQueryTooComplex || refusal.code == kNotSupported);
        assert(!refusal.reason.empty());
    } catch (const TextError& error) {
        assert(error.place.line >= 1 && error.place.column >= 1 && !error.reason.empty());
    }
    try {
        Arena arena;
        XmlReader reader(bytes);
        for (bool hasEntry = reader.NextElement() && reader.Enter() && reader.NextElement(); hasEntry;
             hasEntry = reader.NextElement()) {
            const Entry entry = ReadEntry(reader, arena);
            if (const auto* const event = std::get_if<Event>(&entry)) {
                assert(!event->channel.empty() && event->xml.Child({L"RenderingInfo"}) == nullptr);
                assert(!event->xml.Attribute(L"replay:error"));
                assert(!event->message || WithCarriageReturns(*event->message) == *event->message);
            } else {
                const auto& [kind, node] = std::get<Action>(entry);
                assert(node.name.starts_with(kReplayPrefix));
                assert(kind >= kDeclarationKinds || !node.Attribute(L"name")->empty());
            }
        }
    } catch (const TextError& error) {
        assert(error.place.line >= 1 && error.place.column >= 1 && !error.reason.empty());
    }
}
