// Explains why a query does not select an event, in a second pass over the parsed query.

#include "tools/replay/query_evaluation.h"

#include <algorithm>

namespace orvel::replay {

namespace {

using Failure = Explanation::Failure;

Explanation Explain(const Expression& expression, const Context& context);

Explanation Single(std::wstring found, std::wstring wanted, size_t depth = 0)
{
    return {{0, depth}, {{std::move(found), std::move(wanted)}}};
}

/// Formats an event's value: texts are quoted and truncated.
std::wstring Format(std::wstring_view value)
{
    constexpr size_t kLongest = 60;
    if (ParseNumber(value)) {
        return std::wstring(value);
    }
    std::wstring text = L"'" + std::wstring(value.substr(0, kLongest)) + (value.size() > kLongest ? L"...'" : L"'");
    std::replace_if(
        text.begin(), text.end(), [](wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\t'; }, L' ');
    return text;
}

std::wstring Format(const Literal& literal)
{
    return literal.isQuoted ? L"'" + literal.text + L"'" : literal.text;
}

/// Returns whether a value can be converted to the type of a literal.
bool IsConvertible(std::wstring_view value, const Value& literal)
{
    return std::holds_alternative<std::monostate>(literal) || std::holds_alternative<Number>(literal) ||
           ParseValue(value).index() == literal.index();
}

/// Returns a name such as "Provider/@Name", "Level" or "Data[@Name='App']".
std::wstring Label(const Context& node)
{
    std::wstring label(node.node->name);
    if (node.kind == Context::Attribute) {
        return label.append(L"/@").append(node.name);
    }
    const auto name = node.node->Attribute(L"Name");
    return name ? label.append(L"[@Name='").append(*name).append(L"']") : label;
}

std::wstring StepName(const Step& step)
{
    switch (step.axis) {
    case Step::Text:
        return L"text";
    case Step::Attribute:
        return step.name == L"*" ? L"attribute" : L"@" + step.name;
    default:
        return step.name == L"*" ? L"child" : step.name;
    }
}

std::wstring OneOf(size_t count, const Step& step)
{
    return count > 1 ? L" (one of " + std::to_wstring(count) + L" " + StepName(step) + L")" : std::wstring();
}

/// Explains why a path selects no node: a step without nodes, or the predicate that failed at the nearest node.
Explanation ExplainPath(std::span<const Step> path, const Context& context)
{
    const Step& step = path.front();
    size_t count = 0;
    Explanation nearest;
    Positions positions{};
    AnyCandidate(step, context, [&](Context candidate) {
        const auto failed = FindFalse(step, positions, candidate);
        Explanation explanation =
            failed != step.predicates.end() ? Explain(*failed, candidate) : ExplainPath(path.subspan(1), candidate);
        explanation.nearness.conditions += static_cast<size_t>(failed - step.predicates.begin());
        ++explanation.nearness.depth;
        if (++count == 1 || explanation.nearness > nearest.nearness) {
            nearest = std::move(explanation);
        }
        return false;
    });
    if (count == 0) {
        const std::wstring parent = context.kind == Context::Root ? L"the log" : Label(context);
        return Single(parent + L" has no " + StepName(step), L"");
    }
    for (Failure& failure : nearest.failures) {
        failure.found += OneOf(count, step);
    }
    return nearest;
}

/// Formats the value of position() or timediff().
std::wstring FormatResult(const Expression& call, const Context& context)
{
    const auto number = NumberOf(call, context);
    if (!number) {
        return L"unknown, because a time is missing";
    }
    return (number->isNegative ? L"-" : L"") + std::to_wstring(number->whole);
}

/// Describes the values for which a comparison or a call of band() is true, such as "at most 3".
std::wstring Wanted(const Expression& expression, const Context& context)
{
    const Expression& right = expression.parts.back();
    if (expression.kind == Expression::Bits) {
        return L"a bit of " + std::wstring(FirstValue(right, context).value_or(L"nothing"));
    }
    constexpr const wchar_t* kWords[] = {L"",         L"anything but ", L"less than ",
                                         L"at most ", L"more than ",    L"at least "};
    const std::wstring words = kWords[expression.comparison];
    if (right.kind != Expression::Constant) {
        return words + FormatResult(right, context);
    }
    const bool needsOrder = expression.comparison != Expression::Equal && expression.comparison != Expression::NotEqual;
    return words + Format(right.literal) +
           (needsOrder && !HasOrder(right.literal.value) ? L", but texts have no order" : L"");
}

/// Explains a comparison or a call of band().
Explanation ExplainValue(const Expression& expression, const Context& context)
{
    const Expression& left = expression.parts.front();
    const std::wstring wanted = Wanted(expression, context);
    if (left.kind == Expression::Position) {
        return Single(Label(context) + L" is number " + FormatResult(left, context), wanted);
    }
    if (left.kind == Expression::TimeDifference) {
        return Single(L"timediff() is " + FormatResult(left, context), wanted);
    }
    if (left.kind == Expression::Constant) {
        return Single(L"the literal is " + Format(left.literal), wanted);
    }
    std::vector<Context> nodes;
    AnyNode(left.path, context, [&](const Context& node) {
        nodes.push_back(node);
        return false;
    });
    if (nodes.empty()) {
        return ExplainPath(left.path, context);
    }
    const std::wstring_view value = nodes.front().value;
    std::wstring found = Label(nodes.front()) + L" is " + Format(value);
    if (expression.kind == Expression::Compare) {
        found += IsConvertible(value, expression.parts.back().literal.value) ? L"" : L", which is of another type";
        found += OneOf(nodes.size(), left.path.back());
    }
    return Single(found, wanted, left.path.size());
}

/// Explains the first operand that is false.
Explanation ExplainAnd(const Expression& expression, const Context& context)
{
    const auto& parts = expression.parts;
    const auto isTrue = [&](const Expression& part) { return IsTrue(part, context); };
    Explanation explanation = Explain(*std::find_if_not(parts.begin(), parts.end(), isTrue), context);
    explanation.nearness.conditions += static_cast<size_t>(std::count_if(parts.begin(), parts.end(), isTrue));
    return explanation;
}

/// Adds a failure, to the failure with the same value if there is one.
void Merge(std::vector<Failure>& failures, Failure failure)
{
    const auto same = std::ranges::find(failures, failure.found, &Failure::found);
    if (same == failures.end()) {
        failures.push_back(std::move(failure));
    } else if (!failure.wanted.empty()) {
        same->wanted += (same->wanted.empty() ? L"" : L" or ") + failure.wanted;
    }
}

/// Explains the operands that came nearest, and merges those on one value: "EventID is 3, the query wants 1 or 2".
Explanation ExplainOr(const Expression& expression, const Context& context)
{
    Explanation nearest = Explain(expression.parts.front(), context);
    for (auto part = expression.parts.begin() + 1; part != expression.parts.end(); ++part) {
        Explanation explanation = Explain(*part, context);
        if (explanation.nearness > nearest.nearness) {
            nearest = std::move(explanation);
        } else if (explanation.nearness == nearest.nearness) {
            for (Failure& failure : explanation.failures) {
                Merge(nearest.failures, std::move(failure));
            }
        }
    }
    return nearest;
}

/// Explains an expression that is false.
Explanation Explain(const Expression& expression, const Context& context)
{
    switch (expression.kind) {
    case Expression::Or:
        return ExplainOr(expression, context);
    case Expression::And:
        return ExplainAnd(expression, context);
    case Expression::Compare:
    case Expression::Bits:
        return ExplainValue(expression, context);
    default:
        return ExplainPath(expression.path, context);
    }
}

} // namespace

Explanation Query::Explain(const Node& event) const
{
    return replay::Explain(root_, {event});
}

std::wstring Explanation::Text() const
{
    std::wstring text;
    for (const auto& [found, wanted] : failures) {
        text += (text.empty() ? L"" : L"; ") + found + (wanted.empty() ? L"" : L", the query wants ") + wanted;
    }
    return text;
}

} // namespace orvel::replay
