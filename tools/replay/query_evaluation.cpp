#include "tools/replay/query_evaluation.h"

namespace orvel::replay {

namespace {

/// Returns whether a comparison is true for two values of this order.
bool Holds(Expression::Operator comparison, std::partial_ordering order)
{
    switch (comparison) {
    case Expression::Equal:
        return order == 0;
    case Expression::NotEqual:
        return order != 0;
    case Expression::Less:
        return order < 0;
    case Expression::LessOrEqual:
        return order <= 0;
    case Expression::Greater:
        return order > 0;
    default:
        return order >= 0;
    }
}

/// Compares two values, of which one that is not a number differs from every number and has no order.
bool CompareNumbers(Expression::Operator comparison, const std::optional<Number>& left,
                    const std::optional<Number>& right)
{
    return Holds(comparison, left && right ? *left <=> *right : std::partial_ordering::unordered);
}

/// Converts an event's value to the literal's type and compares them.
bool CompareValue(Expression::Operator comparison, std::wstring_view text, const Literal& literal)
{
    // Texts and identifiers have no order, so <, <=, > and >= are false (XPath 1.0, 3.4).
    const auto compareUnordered = [comparison](bool areEqual) {
        return comparison == (areEqual ? Expression::Equal : Expression::NotEqual);
    };
    if (std::holds_alternative<std::monostate>(literal.value)) {
        return compareUnordered(text == literal.text); // whether case matters is not documented
    }
    const Value value = ParseValue(text);
    if (value.index() != literal.value.index()) {
        return std::holds_alternative<Number>(literal.value) && comparison == Expression::NotEqual;
    }
    return HasOrder(value) ? Holds(comparison, value <=> literal.value) : compareUnordered(value == literal.value);
}

/// Evaluates a comparison. The parser has ordered its operands: paths before functions before literals.
bool CompareOperands(const Expression& comparison, const Context& context)
{
    const Expression& left = comparison.parts.front();
    const Expression& right = comparison.parts.back();
    const Expression::Operator op = comparison.comparison;
    if (left.kind == Expression::Constant) {
        return CompareValue(op, left.literal.text, right.literal);
    }
    if (left.kind != Expression::Path) {
        const auto number = NumberOf(left, context);
        return number && CompareNumbers(op, number, NumberOf(right, context));
    }
    if (right.kind != Expression::Constant) {
        const auto number = NumberOf(right, context);
        return number && AnyNode(left.path, context, [&](const Context& node) {
                   return CompareNumbers(op, ParseNumber(node.value), number);
               });
    }
    // For "!=", too, one node suffices (XPath 1.0, 3.4); the Event Log's pages do not say.
    return AnyNode(left.path, context,
                   [&](const Context& node) { return CompareValue(op, node.value, right.literal); });
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

/// Returns the milliseconds from the first time to the second (default: the event's), or nothing if one is missing.
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

} // namespace

std::optional<std::wstring_view> FirstValue(const Expression& operand, const Context& context)
{
    if (operand.kind == Expression::Constant) {
        return operand.literal.text;
    }
    std::optional<std::wstring_view> value;
    AnyNode(operand.path, context, [&](const Context& node) {
        value = node.value;
        return true;
    });
    return value;
}

std::optional<Number> NumberOf(const Expression& operand, const Context& context)
{
    if (operand.kind == Expression::Position) {
        return Number{false, context.position};
    }
    if (operand.kind == Expression::TimeDifference) {
        return TimeDifference(operand, context);
    }
    const auto* const number = std::get_if<Number>(&operand.literal.value);
    return number != nullptr ? std::optional(*number) : std::nullopt;
}

std::vector<Expression>::const_iterator FindFalse(const Step& step, Positions& positions, Context& node)
{
    auto position = positions.begin();
    return std::ranges::find_if_not(step.predicates, [&](const Expression& predicate) {
        node.position = ++*position++;
        return IsTrue(predicate, node);
    });
}

bool IsTrue(const Expression& expression, const Context& context)
{
    const auto isTrue = [&](const Expression& part) { return IsTrue(part, context); };
    switch (expression.kind) {
    case Expression::Or:
        return std::ranges::any_of(expression.parts, isTrue);
    case Expression::And:
        return std::ranges::all_of(expression.parts, isTrue);
    case Expression::Compare:
        return CompareOperands(expression, context);
    case Expression::Bits: {
        const auto left = BitsOf(expression.parts.front(), context);
        const auto right = BitsOf(expression.parts.back(), context);
        return left && right && (*left & *right) != 0;
    }
    default:
        return AnyNode(expression.path, context, [](const Context&) { return true; });
    }
}

bool Query::Matches(const Node& event) const
{
    return IsTrue(root_, {event});
}

std::optional<std::wstring_view> Query::FirstValue(const Node& event) const
{
    return replay::FirstValue(root_, {event});
}

std::wstring Query::PlainPath() const
{
    std::wstring plain;
    for (const Step& step : root_.path) {
        plain.append(plain.empty() ? L"" : L"/").append(step.axis == Step::Attribute ? L"@" : L"").append(step.name);
    }
    return plain;
}

std::optional<uint64_t> CreationTime(const Node& event)
{
    const Node* created = event.Child({L"System", L"TimeCreated"});
    return created != nullptr ? ParseEventTime(created->Attribute(L"SystemTime").value_or(L"")) : std::nullopt;
}

} // namespace orvel::replay
