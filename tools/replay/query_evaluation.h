#pragma once

#include "tools/replay/query.h"

#include <algorithm>
#include <array>
#include <span>

namespace orvel::replay {

/// A node that a path selects; also the context node of an expression. A whole query's is the virtual root above the
/// event.
struct Context {
    enum Kind { Root, Element, Attribute, Text };
    const Node& event;
    Kind kind = Root;
    const Node* node = nullptr; // the element, also of an attribute or a text; null for the root
    std::wstring_view value = {};
    std::wstring_view name = {}; // of an attribute
    size_t position = 1;
};

/// Returns whether an expression is true, or selects a node. Allocates nothing.
bool IsTrue(const Expression& expression, const Context& context);

/// Returns a literal's text, or the first value of a path, if any.
std::optional<std::wstring_view> FirstValue(const Expression& operand, const Context& context);

/// Returns the value of position(), timediff() or a literal. Returns nothing for a literal of another type and if
/// timediff() lacks a time.
std::optional<Number> NumberOf(const Expression& operand, const Context& context);

/// The number of nodes that have reached each predicate of a step. The array is large enough because each predicate has
/// at least one expression.
using Positions = std::array<size_t, kMaxSelectExpressions>;

/// Returns the first predicate of the step that is false for a node, after setting the node's position for it, or the
/// end. A position counts the nodes that pass the predicates before.
std::vector<Expression>::const_iterator FindFalse(const Step& step, Positions& positions, Context& node);

/// Calls `visit` with each node that a step's axis and name select until it returns true. Returns whether it did.
template <typename Visit>
bool AnyCandidate(const Step& step, const Context& from, const Visit& visit)
{
    const auto isNamed = [&](std::wstring_view name) { return step.name == L"*" || step.name == name; };
    const auto visitElement = [&](const Node& node) {
        return isNamed(node.name) && visit(Context{from.event, Context::Element, &node, node.text});
    };
    const auto visitAttribute = [&](const NodeAttribute& attribute) {
        const auto& [name, value] = attribute;
        return isNamed(name) && visit(Context{from.event, Context::Attribute, from.node, value, name});
    };
    if (from.kind == Context::Root) {
        return step.axis == Step::Child && visitElement(from.event);
    }
    if (from.kind != Context::Element) {
        return false;
    }
    switch (step.axis) {
    case Step::Child:
        return std::ranges::any_of(from.node->children, visitElement);
    case Step::Attribute:
        return std::ranges::any_of(from.node->attributes, visitAttribute);
    default:
        return !from.value.empty() && visit(Context{from.event, Context::Text, from.node, from.value});
    }
}

/// Calls `visit` with each node that a path's steps select until it returns true. Returns whether it did.
template <typename Visit>
bool AnyNode(std::span<const Step> path, const Context& context, const Visit& visit)
{
    const Step& step = path.front();
    Positions positions{};
    return AnyCandidate(step, context, [&](Context candidate) {
        if (FindFalse(step, positions, candidate) != step.predicates.end()) {
            return false;
        }
        return path.size() == 1 ? visit(candidate) : AnyNode(path.subspan(1), candidate, visit);
    });
}

} // namespace orvel::replay
