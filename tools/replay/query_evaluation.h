#pragma once

#include "tools/replay/query.h"

namespace orvel::replay {

/// A node that an expression is evaluated at, or that a path leads to.
struct Item {
    enum Kind { Root, Element, Attribute, Text };
    Kind kind;
    const Node* node; // the element that an attribute or a text belongs to; of the root, the event
    std::wstring_view name = {};
    std::wstring_view value = {};
};

/// What an expression is evaluated in. The virtual root above the event is the context of a whole query.
struct Context {
    const Node& event;
    Item item;
    size_t position;
};

inline Context RootContext(const Node& event)
{
    return {event, {Item::Root, &event}, 1};
}

/// Whether an expression is true, or leads to a node. Allocates nothing.
bool IsTrue(const Expression& expression, const Context& context);

/// The first value of a path or a literal's text; nothing if the path leads nowhere.
std::optional<std::wstring_view> FirstValue(const Expression& operand, const Context& context);

/// Milliseconds from the first time to the second, or to the event's; nothing if one is missing.
std::optional<Number> TimeDifference(const Expression& call, const Context& context);

/// Whether a value of an event can be converted to a literal's type, so that the two can be compared.
bool IsConvertible(std::wstring_view value, const Literal& literal);

/// Calls `visit` with each node that a step's axis and name select, until it returns true; returns whether it did.
template <typename Visit>
bool AnyCandidate(const Step& step, const Item& from, const Visit& visit)
{
    const auto isNamed = [&](std::wstring_view name) { return step.name.empty() || step.name == name; };
    const auto visitElement = [&](const Node& node) {
        return isNamed(node.name) && visit(Item{Item::Element, &node, node.name, node.text});
    };
    if (from.kind == Item::Root) {
        return step.axis == Step::Child && visitElement(*from.node);
    }
    if (from.kind != Item::Element) {
        return false;
    }
    if (step.axis == Step::Text) {
        return !from.value.empty() && visit(Item{Item::Text, from.node, L"text()", from.value});
    }
    if (step.axis == Step::Child) {
        for (const Node& child : from.node->children) {
            if (visitElement(child)) {
                return true;
            }
        }
        return false;
    }
    for (const auto& [name, value] : from.node->attributes) {
        if (isNamed(name) && visit(Item{Item::Attribute, from.node, name, value})) {
            return true;
        }
    }
    return false;
}

} // namespace orvel::replay
