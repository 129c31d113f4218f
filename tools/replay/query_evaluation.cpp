#include "tools/replay/query_evaluation.h"

#include "tools/replay/event_time.h"

#include <algorithm>

namespace orvel::replay {

namespace {

template <typename Visit>
bool AnyNode(const Expression& path, const Context& context, const Visit& visit)
{
    return AnyNode(path.path, 0, context, visit);
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

/// Compares identifiers or texts. They have no order, so <, <=, > and >= are false (XPath 1.0, 3.4).
bool CompareUnordered(Expression::Operator comparison, bool areEqual)
{
    return comparison == (areEqual ? Expression::Equal : Expression::NotEqual);
}

/// Compares two values, of which one that is not a number differs from every number and has no order.
bool CompareNumbers(Expression::Operator comparison, const std::optional<Number>& left,
                    const std::optional<Number>& right)
{
    return left && right ? Compare(comparison, *left, *right) : comparison == Expression::NotEqual;
}

/// Converts an event's value to the literal's type and compares them.
bool CompareValue(Expression::Operator comparison, std::wstring_view value, const Literal& literal)
{
    if (const auto* number = std::get_if<Number>(&literal.value)) {
        return CompareNumbers(comparison, ParseNumber(value), *number);
    }
    if (const auto* time = std::get_if<EventTime>(&literal.value)) {
        const auto ticks = ParseEventTime(value);
        return ticks && Compare(comparison, EventTime{*ticks}, *time);
    }
    if (const auto* guid = std::get_if<Guid>(&literal.value)) {
        const auto other = ParseGuid(value);
        return other && CompareUnordered(comparison, *other == *guid);
    }
    if (const auto* sid = std::get_if<Sid>(&literal.value)) {
        const auto other = ParseSid(value);
        return other && CompareUnordered(comparison, *other == *sid);
    }
    return CompareUnordered(comparison, value == literal.text); // whether case matters is not documented
}

/// Returns the value of position(), timediff() or a literal, if it is a number.
std::optional<Number> NumberOf(const Expression& operand, const Context& context)
{
    if (operand.kind == Expression::Position) {
        return Number{false, context.position};
    }
    if (operand.kind == Expression::TimeDifference) {
        return TimeDifference(operand, context);
    }
    const auto* const number = std::get_if<Number>(&operand.literal->value);
    return number != nullptr ? std::optional(*number) : std::nullopt;
}

/// Evaluates a comparison. The parser has ordered its operands: paths before functions before literals.
bool CompareOperands(const Expression& comparison, const Context& context)
{
    const Expression& left = comparison.parts.front();
    const Expression& right = comparison.parts.back();
    const Expression::Operator op = comparison.comparison;
    if (left.kind == Expression::TimeDifference && !TimeDifference(left, context)) {
        return false;
    }
    if (left.kind == Expression::Constant) {
        return CompareValue(op, left.literal->text, *right.literal);
    }
    if (left.kind != Expression::Path) {
        return CompareNumbers(op, NumberOf(left, context), NumberOf(right, context));
    }
    if (right.kind != Expression::Constant) {
        const auto number = NumberOf(right, context);
        return number && AnyNode(left, context,
                                 [&](const Item& item) { return CompareNumbers(op, ParseNumber(item.value), number); });
    }
    // For "!=", too, one node suffices (XPath 1.0, 3.4); the Event Log's pages do not say.
    return AnyNode(left, context, [&](const Item& item) { return CompareValue(op, item.value, *right.literal); });
}

std::optional<uint64_t> BitsOf(const Expression& operand, const Context& context)
{
    const auto text = FirstValue(operand, context);
    const auto number = text ? ParseNumber(*text) : std::nullopt;
    return number && !number->isNegative && number->fraction == 0 ? std::optional(number->whole) : std::nullopt;
}

/// Returns an argument of timediff(): a time, or a number that is a FILETIME (Consuming Events page).
std::optional<uint64_t> TimeOf(const Expression& operand, const Context& context)
{
    const auto text = FirstValue(operand, context);
    if (!text) {
        return std::nullopt;
    }
    const auto number = ParseWholeNumber(*text);
    return number && !number->isNegative ? std::optional(number->whole) : ParseEventTime(*text);
}

} // namespace

std::optional<std::wstring_view> FirstValue(const Expression& operand, const Context& context)
{
    if (operand.kind == Expression::Constant) {
        return operand.literal->text;
    }
    std::optional<std::wstring_view> value;
    AnyNode(operand, context, [&](const Item& item) {
        value = item.value;
        return true;
    });
    return value;
}

std::optional<Number> TimeDifference(const Expression& call, const Context& context)
{
    const auto from = TimeOf(call.parts.front(), context);
    const auto to = call.parts.size() > 1 ? TimeOf(call.parts.back(), context) : CreationTime(context.event);
    if (!from || !to) {
        return std::nullopt;
    }
    constexpr uint64_t kUnitsPerMillisecond = 10'000;
    const uint64_t distance = (std::max(*from, *to) - std::min(*from, *to)) / kUnitsPerMillisecond;
    return Number{*from > *to && distance != 0, distance};
}

bool IsConvertible(std::wstring_view value, const Literal& literal)
{
    return !(std::holds_alternative<EventTime>(literal.value) && !ParseEventTime(value)) &&
           !(std::holds_alternative<Guid>(literal.value) && !ParseGuid(value)) &&
           !(std::holds_alternative<Sid>(literal.value) && !ParseSid(value));
}

bool IsTrue(const Expression& expression, const Context& context)
{
    const auto isTrue = [&](const Expression& part) { return IsTrue(part, context); };
    switch (expression.kind) {
    case Expression::Or:
        return std::any_of(expression.parts.begin(), expression.parts.end(), isTrue);
    case Expression::And:
        return std::all_of(expression.parts.begin(), expression.parts.end(), isTrue);
    case Expression::Compare:
        return CompareOperands(expression, context);
    case Expression::Bits: {
        const auto left = BitsOf(expression.parts.front(), context);
        const auto right = BitsOf(expression.parts.back(), context);
        return left && right && (*left & *right) != 0;
    }
    default:
        return AnyNode(expression, context, [](const Item&) { return true; });
    }
}

bool Query::Matches(const Node& event) const
{
    return IsTrue(root_, RootContext(event));
}

std::optional<std::wstring_view> Query::FirstValue(const Node& event) const
{
    return replay::FirstValue(root_, RootContext(event));
}

std::wstring Query::PlainPath() const
{
    std::wstring plain;
    for (const Step& step : root_.path) {
        plain.append(plain.empty() ? L"" : L"/").append(step.axis == Step::Attribute ? L"@" : L"");
        const std::wstring name = step.name.empty() ? L"*" : step.name;
        plain += step.axis == Step::Text ? L"text()" : name;
    }
    return plain;
}

std::optional<uint64_t> CreationTime(const Node& event)
{
    const Node* created = event.Child({L"System", L"TimeCreated"});
    const auto* time = created != nullptr ? created->Attribute(L"SystemTime") : nullptr;
    return time != nullptr ? ParseEventTime(*time) : std::nullopt;
}

} // namespace orvel::replay
