#pragma once

#include "tools/replay/query.h"

#include <array>

namespace orvel::replay {

/// A context node, or a node that a path selects.
struct Item {
    enum Kind { Root, Element, Attribute, Text };
    Kind kind;
    const Node* node; // the element of an attribute or a text; for the root, the event
    std::wstring_view name = {};
    std::wstring_view value = {};
};

/// The context of an expression. For a whole query it is the virtual root above the event.
struct Context {
    const Node& event;
    Item item;
    size_t position;
};

inline Context RootContext(const Node& event)
{
    return {event, {Item::Root, &event}, 1};
}

/// Returns whether an expression is true, or selects a node. Allocates nothing.
bool IsTrue(const Expression& expression, const Context& context);

/// Returns a literal's text, or the first value of a path, if any.
std::optional<std::wstring_view> FirstValue(const Expression& operand, const Context& context);

/// Returns the milliseconds from the first time to the second (default: the event's), or nothing if one is missing.
std::optional<Number> TimeDifference(const Expression& call, const Context& context);

/// Returns whether an event's value can be converted to the literal's type.
bool IsConvertible(std::wstring_view value, const Literal& literal);

/// Calls `visit` with each node that a step's axis and name select until it returns true. Returns whether it did.
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

/// Calls `visit` with each node that a path's steps from `index` on select until it returns true. Returns whether it
/// did.
template <typename Visit>
bool AnyNode(const std::vector<Step>& path, size_t index, const Context& context, const Visit& visit)
{
    const Step& step = path[index];
    // One position for each predicate, counted among the nodes that pass the predicates before it. The array is large
    // enough because each predicate has at least one expression.
    std::array<size_t, kMaxSelectExpressions> positions{};
    return AnyCandidate(step, context.item, [&](const Item& candidate) {
        for (size_t i = 0; i < step.predicates.size(); ++i) {
            if (!IsTrue(step.predicates[i], {context.event, candidate, ++positions[i]})) {
                return false;
            }
        }
        return index + 1 == path.size() ? visit(candidate)
                                        : AnyNode(path, index + 1, {context.event, candidate, 1}, visit);
    });
}

} // namespace orvel::replay
