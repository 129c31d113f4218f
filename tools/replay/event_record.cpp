#include "tools/replay/event_record.h"

#include <algorithm>
#include <cwctype>

namespace orvel::replay {

namespace {

std::wint_t Lower(wchar_t c)
{
    return std::towlower(static_cast<std::wint_t>(c));
}

} // namespace

const Node* Node::Child(std::initializer_list<std::wstring_view> path) const
{
    const Node* node = this;
    for (const std::wstring_view part : path) {
        const auto child = std::ranges::find(node->children, part, &Node::name);
        if (child == node->children.end()) {
            return nullptr;
        }
        node = &*child;
    }
    return node;
}

std::optional<std::wstring_view> Node::Attribute(std::wstring_view attributeName) const
{
    const auto found = std::ranges::find(attributes, attributeName, &NodeAttribute::first);
    return found != attributes.end() ? std::optional<std::wstring_view>(found->second) : std::nullopt;
}

bool EqualNames(std::wstring_view a, std::wstring_view b)
{
    return std::ranges::equal(a, b, {}, Lower, Lower);
}

bool NameOrder::operator()(std::wstring_view a, std::wstring_view b) const
{
    return std::ranges::lexicographical_compare(a, b, {}, Lower, Lower);
}

} // namespace orvel::replay
