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

const Node* Node::Child(std::wstring_view childName) const
{
    const auto child = std::ranges::find(Children(), childName, &Node::name);
    return child != Children().end() ? &*child : nullptr;
}

const std::wstring_view* Node::Attribute(std::wstring_view attributeName) const
{
    const auto found = std::ranges::find(attributes, attributeName, &NodeAttribute::name);
    return found != attributes.end() ? &found->value : nullptr;
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
