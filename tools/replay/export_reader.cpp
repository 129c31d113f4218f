#include "tools/replay/export_reader.h"

#include "tools/replay/query.h"

#include <algorithm>

namespace orvel::replay {

namespace {

struct AttributeForm {
    std::wstring_view name;
    bool isRequired = true;
    std::vector<std::wstring_view> values = {}; // empty: any text
};

struct ActionForm {
    std::wstring_view name;
    Action::Kind kind;
    std::vector<AttributeForm> attributes;
};

const AttributeForm kFile{L"file"};
const AttributeForm kEncoding{L"encoding", false, {L"utf-16le", L"utf-8"}};
const AttributeForm kRoot{L"root", true, {L"HKLM", L"HKCU"}};
const AttributeForm kType{L"type", false, {L"REG_SZ", L"REG_EXPAND_SZ"}};
const AttributeForm kForwarded{L"replay:forwarded", false, {L"true", L"false"}};
const AttributeForm kError{L"replay:error", false, {L"15027", L"15028", L"15029", L"15030", L"15031", L"15033"}};

const ActionForm kActions[] = {
    {L"replay:channel", Action::Channel, {{L"name"}}},
    {L"replay:publisher", Action::Publisher, {{L"name"}}},
    {L"replay:missing-publisher", Action::MissingPublisher, {{L"name"}}},
    {L"replay:append", Action::Append, {kFile, kEncoding}},
    {L"replay:write", Action::Write, {kFile, kEncoding}},
    {L"replay:rename", Action::Rename, {{L"from"}, {L"to"}}},
    {L"replay:delete", Action::Delete, {kFile}},
    {L"replay:registry", Action::Registry, {kRoot, {L"key"}, {L"name"}, kType}},
    {L"replay:wait", Action::Wait, {{L"milliseconds"}}},
};

template <typename... Parts>
[[noreturn]] void Refuse(const XmlReader& reader, const Node& node, const Parts&... parts)
{
    std::wstring reason;
    ((reason += parts), ...);
    FailAt(reader.Text(), node.end, std::move(reason));
}

/// Returns an attribute's value, if it is present. Throws TextError if the form requires it or excludes its value.
std::optional<std::wstring_view> CheckedAttribute(const XmlReader& reader, const Node& node, const AttributeForm& form)
{
    const auto value = node.Attribute(form.name);
    if (!value && form.isRequired) {
        Refuse(reader, node, L"<", node.name, L"> lacks the attribute '", form.name, L"'");
    }
    if (value && !form.values.empty() && std::ranges::count(form.values, *value) == 0) {
        std::wstring possible;
        for (const std::wstring_view other : form.values) {
            possible.append(possible.empty() ? L"" : L", ").append(other);
        }
        Refuse(reader, node, form.name, L"='", *value, L"' is not possible; choose from ", possible);
    }
    return value;
}

Action MakeAction(Node node, const XmlReader& reader)
{
    const auto* const form = std::ranges::find(kActions, node.name, &ActionForm::name);
    if (form == std::end(kActions)) {
        Refuse(reader, node, L"<", node.name, L"> is no replay action");
    }
    for (const AttributeForm& attribute : form->attributes) {
        CheckedAttribute(reader, node, attribute);
    }
    for (const auto& [name, value] : node.attributes) {
        if (std::ranges::find(form->attributes, name, &AttributeForm::name) == form->attributes.end()) {
            Refuse(reader, node, L"<", node.name, L"> has no attribute '", name, L"'");
        }
    }
    if (form->kind < kDeclarationKinds && node.Attribute(L"name")->empty()) {
        Refuse(reader, node, L"<", node.name, L"> has an empty name");
    }
    const auto time = node.Attribute(L"milliseconds");
    if (time && (time->empty() || time->size() > 6 || !std::ranges::all_of(*time, IsDigit))) {
        Refuse(reader, node, L"milliseconds='", *time, L"' is not a number of up to six digits");
    }
    return {form->kind, std::move(node)};
}

Event MakeEvent(Node node, const XmlReader& reader)
{
    const Node* const channel = node.Child({L"System", L"Channel"});
    if (channel == nullptr || channel->text.empty()) {
        Refuse(reader, node, L"the event has no System/Channel; ", kHowToExport);
    }
    Event event{std::move(node), {}, channel->text};
    if (const Node* const provider = event.xml.Child({L"System", L"Provider"})) {
        event.publisher = provider->Attribute(L"Name").value_or(L"");
    }
    event.isForwarded = CheckedAttribute(reader, event.xml, kForwarded) == L"true";
    const auto error = CheckedAttribute(reader, event.xml, kError).value_or(L"0");
    event.messageError = static_cast<unsigned>(ParseWholeNumber(error)->whole);
    if (const Node* const message = event.xml.Child({L"RenderingInfo", L"Message"})) {
        event.message = WithCarriageReturns(message->text, message->text.get_allocator());
    }
    // The rendering and the replay attributes are not part of the event that queries and render contexts see.
    std::erase_if(event.xml.children, [](const Node& child) { return child.name == L"RenderingInfo"; });
    std::erase_if(event.xml.attributes,
                  [](const NodeAttribute& attribute) { return attribute.first.starts_with(kReplayPrefix); });
    return event;
}

} // namespace

Entry ReadEntry(XmlReader& reader, Arena& arena)
{
    Node node = reader.Read(arena);
    if (node.name == L"Event") {
        return MakeEvent(std::move(node), reader);
    }
    if (node.name.starts_with(kReplayPrefix)) {
        return MakeAction(std::move(node), reader);
    }
    Refuse(reader, node, L"<", node.name, L"> is not an event; ", kHowToExport);
}

std::pmr::wstring WithCarriageReturns(std::wstring_view text, Node::allocator_type memory)
{
    std::pmr::wstring result(memory);
    result.reserve(text.size());
    for (const wchar_t c : text) {
        if (c == L'\n' && !result.ends_with(L'\r')) {
            result += L'\r';
        }
        result += c;
    }
    return result;
}

} // namespace orvel::replay
