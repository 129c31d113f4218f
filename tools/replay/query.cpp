#include "tools/replay/query.h"

#include "tools/replay/event_time.h"

#include <algorithm>
#include <array>
#include <compare>

namespace orvel::replay {

namespace {

bool Holds(const Expression& expression, const Node& node, size_t position, const Node& event);

/// Calls `visit` with the value of each node that the steps from `step` on lead to, until it gives true; gives whether
/// it did. Allocates nothing: it runs once or more per event.
template <typename Visit>
bool Walk(const std::vector<Step>& path, size_t step, const Node& from, const Node& event, const Visit& visit)
{
    const Step& here = path[step];
    if (here.isAttribute) {
        return std::any_of(from.attributes.begin(), from.attributes.end(), [&](const auto& attribute) {
            return (here.name.empty() || attribute.first == here.name) && visit(attribute.second);
        });
    }
    // XPath: each predicate counts positions among what the predicates before it have left.
    std::array<size_t, kMostSelectExpressions> positions{};
    for (const Node& child : from.children) {
        size_t predicate = 0;
        if (!here.name.empty() && child.name != here.name) {
            continue;
        }
        while (predicate < here.predicates.size() &&
               Holds(here.predicates[predicate], child, ++positions[predicate], event)) {
            ++predicate;
        }
        if (predicate == here.predicates.size() &&
            (step + 1 == path.size() ? visit(child.text) : Walk(path, step + 1, child, event, visit))) {
            return true;
        }
    }
    return false;
}

template <typename Value>
bool Compare(Expression::Operator comparison, const Value& left, const Value& right)
{
    switch (comparison) {
    case Expression::Equal:
        return left == right;
    case Expression::NotEqual:
        return left != right;
    case Expression::Less:
        return left < right;
    case Expression::LessOrEqual:
        return left <= right;
    case Expression::Greater:
        return left > right;
    default:
        return left >= right;
    }
}

/// A number beside one that has no sign: everything negative is less.
bool CompareNumber(Expression::Operator comparison, const WholeNumber& left, uint64_t right)
{
    return left.isNegative ? Compare(comparison, -1, 0) : Compare(comparison, left.magnitude, right);
}

/// [MS-EVEN6] 2.2.15.2: a literal is converted by its syntax. A GUID's letters have no case.
bool EqualTexts(std::wstring_view value, std::wstring_view literal)
{
    return literal.size() == 38 && literal.front() == L'{' ? EqualNames(value, literal) : value == literal;
}

bool CompareValue(const Expression& expression, std::wstring_view value)
{
    const Operand& right = expression.right;
    const bool isNotEqual = expression.comparison == Expression::NotEqual;
    if (right.kind == Operand::Number) {
        // XPath 1.0: what is not a number differs from every number.
        const auto number = ParseWholeNumber(value);
        return number ? CompareNumber(expression.comparison, *number, right.number) : isNotEqual;
    }
    if (right.time) {
        const auto time = ParseEventTime(value);
        return time ? Compare(expression.comparison, *time, *right.time) : isNotEqual;
    }
    return EqualTexts(value, right.text) != isNotEqual;
}

std::optional<uint64_t> TimeOf(const Operand& operand, const Node& node, const Node& event)
{
    std::optional<uint64_t> time = operand.time;
    if (operand.kind == Operand::Path) {
        Walk(operand.path, 0, node, event, [&](std::wstring_view value) {
            time = ParseEventTime(value);
            return true;
        });
    }
    return time;
}

std::optional<uint64_t> CreationTime(const Node& event)
{
    const Node* system = event.Child(L"System");
    const Node* created = system != nullptr ? system->Child(L"TimeCreated") : nullptr;
    const std::wstring* time = created != nullptr ? created->Attribute(L"SystemTime") : nullptr;
    return time != nullptr ? ParseEventTime(*time) : std::nullopt;
}

/// Consuming Events page: milliseconds from the first time to the second, or to now.
std::optional<WholeNumber> TimeDifference(const Operand& operand, const Node& node, const Node& event)
{
    const auto from = TimeOf(operand.times.front(), node, event);
    const auto to = operand.times.size() > 1 ? TimeOf(operand.times.back(), node, event) : CreationTime(event);
    if (!from || !to) {
        return std::nullopt;
    }
    constexpr uint64_t kUnitsPerMillisecond = 10'000;
    const uint64_t distance = (std::max(*from, *to) - std::min(*from, *to)) / kUnitsPerMillisecond;
    return WholeNumber{*from > *to && distance != 0, distance};
}

bool Holds(const Expression& expression, const Node& node, size_t position, const Node& event)
{
    const auto partHolds = [&](const Expression& part) { return Holds(part, node, position, event); };
    const auto walk = [&](const auto& visit) { return Walk(expression.left.path, 0, node, event, visit); };
    switch (expression.kind) {
    case Expression::Or:
        return std::any_of(expression.parts.begin(), expression.parts.end(), partHolds);
    case Expression::And:
        return std::all_of(expression.parts.begin(), expression.parts.end(), partHolds);
    case Expression::Exists:
        return walk([](std::wstring_view) { return true; });
    case Expression::Bits:
        return walk([&](std::wstring_view value) {
            const auto number = ParseWholeNumber(value);
            return number && !number->isNegative && (number->magnitude & expression.right.number) != 0;
        });
    default:
        break;
    }
    if (expression.left.kind == Operand::Position) {
        return Compare(expression.comparison, uint64_t{position}, expression.right.number);
    }
    if (expression.left.kind == Operand::TimeDifference) {
        const auto difference = TimeDifference(expression.left, node, event);
        return difference && CompareNumber(expression.comparison, *difference, expression.right.number);
    }
    return walk([&](std::wstring_view value) { return CompareValue(expression, value); });
}

} // namespace

bool Query::Matches(const Node& event) const
{
    std::wstring_view value;
    return FirstValue(event, value);
}

bool Query::FirstValue(const Node& event, std::wstring_view& value) const
{
    // The first step stands for the event itself, among the log's events: it has no position.
    const Step& first = path_.front();
    if (!std::all_of(first.predicates.begin(), first.predicates.end(),
                     [&](const Expression& predicate) { return Holds(predicate, event, 1, event); })) {
        return false;
    }
    if (path_.size() == 1) {
        value = event.text;
        return true;
    }
    return Walk(path_, 1, event, event, [&](std::wstring_view found) {
        value = found;
        return true;
    });
}

} // namespace orvel::replay
