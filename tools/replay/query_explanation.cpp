// Explains why a query does not select an event, in a second pass over the parsed query.

#include "tools/replay/query_evaluation.h"

#include <algorithm>

namespace orvel::replay {

namespace {

/// A failed condition: the value found and, unless a node is missing, the value that the query wants.
struct Failure {
    std::wstring found;
    std::wstring wanted;
};

struct Explanation {
    Nearness nearness;
    std::vector<Failure> failures;
};

Explanation Explain(const Expression& expression, const Context& context);

Explanation Single(std::wstring found, std::wstring wanted, size_t depth = 0)
{
    return {{0, depth}, {{std::move(found), std::move(wanted)}}};
}

/// Formats an event's value: texts are quoted and truncated.
std::wstring Shown(std::wstring_view value)
{
    constexpr size_t kLongest = 60;
    if (ParseNumber(value)) {
        return std::wstring(value);
    }
    std::wstring shown = L"'" + std::wstring(value.substr(0, kLongest)) + (value.size() > kLongest ? L"...'" : L"'");
    std::replace_if(
        shown.begin(), shown.end(), [](wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\t'; }, L' ');
    return shown;
}

std::wstring Shown(const Literal& literal)
{
    return literal.isQuoted ? L"'" + literal.text + L"'" : literal.text;
}

/// Returns a name such as "Provider/@Name", "Level" or "Data[@Name='App']".
std::wstring Label(const Item& item)
{
    std::wstring label(item.node->name);
    if (item.kind == Item::Attribute) {
        return label.append(L"/@").append(item.name);
    }
    const auto* name = item.node->Attribute(L"Name");
    return name != nullptr ? label.append(L"[@Name='").append(*name).append(L"']") : label;
}

std::wstring StepName(const Step& step)
{
    switch (step.axis) {
    case Step::Text:
        return L"text";
    case Step::Attribute:
        return step.name.empty() ? L"attribute" : L"@" + step.name;
    default:
        return step.name.empty() ? L"child" : step.name;
    }
}

std::wstring OneOf(size_t count, const Step& step)
{
    return count > 1 ? L" (one of " + std::to_wstring(count) + L" " + StepName(step) + L")" : std::wstring();
}

/// Returns the nodes that a path selects.
std::vector<Item> Collect(const std::vector<Step>& path, const Context& context)
{
    std::vector<Item> items;
    AnyNode(path, 0, context, [&](const Item& item) {
        items.push_back(item);
        return false;
    });
    return items;
}

/// Explains why a path selects no node: a step without nodes, or the predicate that failed at the nearest node.
Explanation ExplainPath(const std::vector<Step>& path, size_t index, const Context& context)
{
    const Step& step = path[index];
    size_t count = 0;
    Explanation nearest;
    std::array<size_t, kMaxSelectExpressions> positions{};
    AnyCandidate(step, context.item, [&](const Item& candidate) {
        Context here{context.event, candidate, 1};
        size_t held = 0;
        while (held < step.predicates.size()) {
            here.position = ++positions[held];
            if (!IsTrue(step.predicates[held], here)) {
                break;
            }
            ++held;
        }
        Explanation explanation =
            held < step.predicates.size() ? Explain(step.predicates[held], here) : ExplainPath(path, index + 1, here);
        explanation.nearness.conditions += held;
        ++explanation.nearness.depth;
        if (++count == 1 || explanation.nearness > nearest.nearness) {
            nearest = std::move(explanation);
        }
        return false;
    });
    if (count == 0) {
        const std::wstring parent = context.item.kind == Item::Root ? L"the log" : Label(context.item);
        return Single(parent + L" has no " + StepName(step), L"");
    }
    for (Failure& failure : nearest.failures) {
        failure.found += OneOf(count, step);
    }
    return nearest;
}

std::wstring TimeDifferenceText(const Expression& call, const Context& context)
{
    const auto difference = TimeDifference(call, context);
    if (!difference) {
        return L"unknown, because a time is missing";
    }
    return (difference->isNegative ? L"-" : L"") + std::to_wstring(difference->whole);
}

/// Describes the values for which a comparison is true, such as "at most 3".
std::wstring Wanted(const Expression& comparison, const Context& context)
{
    constexpr const wchar_t* kWords[] = {L"",         L"anything but ", L"less than ",
                                         L"at most ", L"more than ",    L"at least "};
    const std::wstring words = kWords[comparison.comparison];
    const Expression& right = comparison.parts.back();
    if (right.kind == Expression::Position) {
        return words + std::to_wstring(context.position);
    }
    if (right.kind == Expression::TimeDifference) {
        return words + TimeDifferenceText(right, context);
    }
    const Literal& literal = *right.literal;
    const bool needsOrder = comparison.comparison != Expression::Equal && comparison.comparison != Expression::NotEqual;
    const bool hasOrder =
        std::holds_alternative<Number>(literal.value) || std::holds_alternative<EventTime>(literal.value);
    return words + Shown(literal) + (needsOrder && !hasOrder ? L", but texts have no order" : L"");
}

Explanation ExplainComparison(const Expression& comparison, const Context& context)
{
    const Expression& left = comparison.parts.front();
    const std::wstring wanted = Wanted(comparison, context);
    if (left.kind == Expression::Position) {
        return Single(Label(context.item) + L" is number " + std::to_wstring(context.position), wanted);
    }
    if (left.kind == Expression::TimeDifference) {
        return Single(L"timediff() is " + TimeDifferenceText(left, context), wanted);
    }
    if (left.kind == Expression::Constant) {
        return Single(L"the literal is " + Shown(*left.literal), wanted);
    }
    const std::vector<Item> items = Collect(left.path, context);
    if (items.empty()) {
        return ExplainPath(left.path, 0, context);
    }
    std::wstring found = Label(items.front()) + L" is " + Shown(items.front().value);
    const Literal* literal = comparison.parts.back().literal.get();
    found += literal != nullptr && !IsConvertible(items.front().value, *literal) ? L", which is of another type" : L"";
    return Single(found + OneOf(items.size(), left.path.back()), wanted, left.path.size());
}

Explanation ExplainBits(const Expression& call, const Context& context)
{
    const bool isMirrored = call.parts.front().kind == Expression::Constant;
    const Expression& value = isMirrored ? call.parts.back() : call.parts.front();
    const Expression& mask = isMirrored ? call.parts.front() : call.parts.back();
    const std::wstring wanted = L"a bit of " + std::wstring(FirstValue(mask, context).value_or(L"nothing"));
    if (value.kind == Expression::Constant) {
        return Single(L"the literal is " + Shown(*value.literal), wanted);
    }
    const std::vector<Item> items = Collect(value.path, context);
    return items.empty()
               ? ExplainPath(value.path, 0, context)
               : Single(Label(items.front()) + L" is " + Shown(items.front().value), wanted, value.path.size());
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

/// Explains the operands that came nearest, and merges those on one value: "EventID is 3, the query wants 1 or 2".
Explanation ExplainOr(const Expression& expression, const Context& context)
{
    Explanation nearest = Explain(expression.parts.front(), context);
    for (auto part = expression.parts.begin() + 1; part != expression.parts.end(); ++part) {
        Explanation explanation = Explain(*part, context);
        if (explanation.nearness > nearest.nearness) {
            nearest = std::move(explanation);
        } else if (explanation.nearness == nearest.nearness) {
            std::move(explanation.failures.begin(), explanation.failures.end(), std::back_inserter(nearest.failures));
        }
    }
    std::vector<Failure> merged;
    for (Failure& failure : nearest.failures) {
        const auto same = std::find_if(merged.begin(), merged.end(),
                                       [&](const Failure& other) { return other.found == failure.found; });
        if (same == merged.end()) {
            merged.push_back(std::move(failure));
        } else if (!failure.wanted.empty()) {
            same->wanted += (same->wanted.empty() ? L"" : L" or ") + failure.wanted;
        }
    }
    nearest.failures = std::move(merged);
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
        return ExplainComparison(expression, context);
    case Expression::Bits:
        return ExplainBits(expression, context);
    default:
        return ExplainPath(expression.path, 0, context);
    }
}

} // namespace

QueryExplanation Query::Explain(const Node& event) const
{
    const Explanation explanation = replay::Explain(root_, RootContext(event));
    QueryExplanation result{explanation.nearness, {}};
    for (const auto& [found, wanted] : explanation.failures) {
        result.text +=
            (result.text.empty() ? L"" : L"; ") + found + (wanted.empty() ? L"" : L", the query wants ") + wanted;
    }
    return result;
}

} // namespace orvel::replay
