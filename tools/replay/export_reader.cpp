#include "tools/replay/export_reader.h"

#include "tools/replay/query.h"

#include <algorithm>
#include <initializer_list>

namespace orvel::replay {

namespace {

struct ActionForm {
    std::wstring_view name;
    Action::Kind kind;
    std::initializer_list<std::wstring_view> required;
    std::initializer_list<std::wstring_view> optional;
};

const ActionForm kActions[] = {
    {L"replay:append", Action::Append, {L"file"}, {L"encoding"}},
    {L"replay:write", Action::Write, {L"file"}, {L"encoding"}},
    {L"replay:rename", Action::Rename, {L"from", L"to"}, {}},
    {L"replay:delete", Action::Delete, {L"file"}, {}},
    {L"replay:registry", Action::Registry, {L"root", L"key", L"name"}, {L"type"}},
    {L"replay:wait", Action::Wait, {L"milliseconds"}, {}},
};

/// Attributes whose values are a choice.
struct AttributeValues {
    std::wstring_view attribute;
    std::initializer_list<std::wstring_view> values;
};

const AttributeValues kChoices[] = {
    {L"encoding", {L"utf-16le", L"utf-8"}},
    {L"root", {L"HKLM", L"HKCU"}},
    {L"type", {L"REG_SZ", L"REG_EXPAND_SZ"}},
};

constexpr std::wstring_view kErrorAttribute = L"replay:error";
constexpr std::wstring_view kForwardedAttribute = L"replay:forwarded";

template <typename Range>
bool Contains(const Range& range, std::wstring_view value)
{
    return std::find(range.begin(), range.end(), value) != range.end();
}

template <typename... Parts>
[[noreturn]] void Refuse(const Node& node, const Parts&... parts)
{
    std::wstring reason;
    ((reason += parts), ...);
    throw TextError{node.line, node.column, std::move(reason)};
}

Action MakeAction(const Node& node)
{
    const auto* const form = std::find_if(std::begin(kActions), std::end(kActions),
                                          [&](const ActionForm& action) { return action.name == node.name; });
    if (form == std::end(kActions)) {
        Refuse(node, L"<", node.name, L"> is no replay action");
    }
    for (const auto& required : form->required) {
        if (node.Attribute(required) == nullptr) {
            Refuse(node, L"<", node.name, L"> lacks the attribute '", required, L"'");
        }
    }
    for (const auto& [name, value] : node.attributes) {
        if (!Contains(form->required, name) && !Contains(form->optional, name)) {
            Refuse(node, L"<", node.name, L"> has no attribute '", name, L"'");
        }
        for (const auto& choice : kChoices) {
            if (choice.attribute == name && !Contains(choice.values, value)) {
                Refuse(node, name, L"='", value, L"' is not possible");
            }
        }
        const bool isDuration = value.size() <= 6 && ParseWholeNumber(value) && !value.starts_with(L"-");
        if (name == L"milliseconds" && !isDuration) {
            Refuse(node, L"milliseconds='", value, L"' is not a number of up to six digits");
        }
    }
    return {form->kind, node};
}

bool IsDeclaration(const Node& node)
{
    return node.name == L"replay:channel" || node.name == L"replay:publisher" ||
           node.name == L"replay:missing-publisher";
}

Declaration MakeDeclaration(const Node& node)
{
    const std::wstring_view* const name = node.Attribute(L"name");
    if (name == nullptr || name->empty() || node.attributes.size() != 1) {
        Refuse(node, L"<", node.name, L"> has one attribute, 'name'");
    }
    const auto kind = node.name == L"replay:channel"     ? Declaration::Channel
                      : node.name == L"replay:publisher" ? Declaration::Publisher
                                                         : Declaration::MissingPublisher;
    return {kind, *name};
}

Event MakeEvent(const Node& node, Arena& arena)
{
    Event event;
    const Node* system = node.Child(L"System");
    const Node* channel = system != nullptr ? system->Child(L"Channel") : nullptr;
    if (channel == nullptr || channel->text.empty()) {
        Refuse(node, L"the event has no System/Channel; ", kHowToExport);
    }
    event.channel = channel->text;
    const Node* provider = system->Child(L"Provider");
    const std::wstring_view* name = provider != nullptr ? provider->Attribute(L"Name") : nullptr;
    event.publisher = name != nullptr ? *name : std::wstring_view();
    event.xml = node;

    // The rendering and the replay attributes are not part of the event that queries and render contexts see.
    Node* const children = Allocate<Node>(arena, node.childCount);
    const auto isOriginal = [](const Node& child) { return child.name != L"RenderingInfo"; };
    event.xml.firstChild = children;
    event.xml.childCount =
        static_cast<size_t>(std::ranges::copy_if(node.Children(), children, isOriginal).out - children);
    const Node* const rendering = node.Child(L"RenderingInfo");
    if (const Node* message = rendering != nullptr ? rendering->Child(L"Message") : nullptr) {
        event.message = CopyTo(arena, WithCarriageReturns(message->text));
    }
    NodeAttribute* const attributes = Allocate<NodeAttribute>(arena, node.attributes.size());
    event.xml.attributes = {
        attributes, std::copy_if(node.attributes.begin(), node.attributes.end(), attributes,
                                 [](const NodeAttribute& other) { return !other.name.starts_with(kReplayPrefix); })};
    if (const std::wstring_view* text = node.Attribute(kForwardedAttribute)) {
        if (*text != L"true" && *text != L"false") {
            Refuse(node, L"replay:forwarded='", *text, L"' is not possible: true and false are");
        }
        event.isForwarded = *text == L"true";
    }
    if (const std::wstring_view* text = node.Attribute(kErrorAttribute)) {
        const uint64_t error = ParseWholeNumber(*text).value_or(Number{}).whole;
        if (error < 15027 || error > 15033 || error == 15032) {
            Refuse(node, L"replay:error='", *text, L"' is not possible: 15027 to 15031 and 15033 are");
        }
        event.messageError = static_cast<unsigned>(error);
    }
    return event;
}

} // namespace

Entry ReadEntry(XmlReader& reader, Arena& arena)
{
    const Node node = reader.Read(arena);
    if (node.name == L"Event") {
        return MakeEvent(node, arena);
    }
    if (IsDeclaration(node)) {
        return MakeDeclaration(node);
    }
    if (node.name.starts_with(kReplayPrefix)) {
        return MakeAction(node);
    }
    Refuse(node, L"<", node.name, L"> is not an event; ", kHowToExport);
}

std::wstring WithCarriageReturns(std::wstring_view text)
{
    std::wstring result;
    result.reserve(text.size());
    for (const wchar_t c : text) {
        if (c == L'\n' && (result.empty() || result.back() != L'\r')) {
            result += L'\r';
        }
        result += c;
    }
    return result;
}

} // namespace orvel::replay
