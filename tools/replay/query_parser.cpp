#include "tools/replay/query.h"
#include "tools/replay/query_text.h"

#include <algorithm>
#include <utility>

namespace orvel::replay {

namespace {

constexpr size_t kMaxDepth = 64;

bool IsCondition(const Expression& expression)
{
    return expression.kind <= Expression::Path;
}

bool IsPosition(const Expression& expression)
{
    return expression.kind == Expression::Position;
}

bool IsConstant(const Expression& expression)
{
    return expression.kind == Expression::Constant;
}

bool IsPath(const Expression& expression)
{
    return expression.kind == Expression::Path;
}

bool LeadsToChildren(const Expression& expression)
{
    return IsPath(expression) && expression.path.front().axis == Step::Child;
}

using Test = bool (*)(const Expression&);

/// Returns whether a test is true for the expression or any operand below it, except in the predicates of paths.
bool Contains(const Expression& expression, Test test)
{
    return test(expression) ||
           std::ranges::any_of(expression.parts, [test](const Expression& part) { return Contains(part, test); });
}

bool AnyPredicate(const Step& step, Test test)
{
    return std::ranges::any_of(step.predicates,
                               [test](const Expression& predicate) { return Contains(predicate, test); });
}

class Parser : private QueryText {
public:
    Parser(std::wstring_view text, size_t maxExpressions, bool isValuePath)
        : QueryText(text), maxExpressions_(maxExpressions), isValuePath_(isValuePath)
    {
    }

    Expression Parse()
    {
        const size_t start = position_;
        Expression expression = ParseOr();
        if (!IsAtEnd()) {
            FailUnexpected(L"expected the end of the query");
        }
        if (!IsCondition(expression) || !Contains(expression, IsPath)) {
            Fail(kInvalidQuery, start, L"a query needs a path that starts with * or Event");
        }
        if (Contains(expression, IsPosition)) {
            Fail(kInvalidQuery, start, L"position() is supported on leaf nodes only");
        }
        if (isValuePath_ && !IsPath(expression)) {
            Fail(kInvalidQuery, start, L"expected a single path");
        }
        return expression;
    }

private:
    void Enter()
    {
        if (++depth_ > kMaxDepth) {
            Fail(kNotSupported, position_, L"expressions are nested deeper than 64 levels");
        }
    }

    void Count(size_t start)
    {
        if (++expressions_ > maxExpressions_) {
            Fail(kQueryTooComplex, start, L"only " + std::to_wstring(maxExpressions_) + L" expressions are supported");
        }
    }

    Expression ParseOr() { return ParseSeries(Expression::Or, L"or", &Parser::ParseAnd); }

    Expression ParseAnd() { return ParseSeries(Expression::And, L"and", &Parser::ParseComparison); }

    Expression ParseSeries(Expression::Kind kind, std::wstring_view word, Expression (Parser::*parsePart)())
    {
        size_t start = position_;
        Expression first = (this->*parsePart)();
        if (!TakeWord(word)) {
            return first;
        }
        if (isValuePath_) {
            Fail(kInvalidQuery, start, L"a value path cannot contain 'or' or 'and'");
        }
        RequireCondition(first, start);
        Expression series{kind, {}, {std::move(first)}};
        do {
            start = position_;
            series.parts.push_back((this->*parsePart)());
            RequireCondition(series.parts.back(), start);
        } while (TakeWord(word));
        return series;
    }

    void RequireCondition(const Expression& expression, size_t start) const
    {
        if (!IsCondition(expression)) {
            Fail(kNotSupported, start,
                 L"a number, a text or timediff() alone is not a condition; compare it with something");
        }
    }

    Expression ParseComparison()
    {
        const size_t start = position_;
        Expression left = ParseOperand();
        const auto comparison = TakeOperator();
        if (!comparison) {
            // A path that ends with predicates counts as the expressions in them.
            if (IsPath(left) && left.path.back().predicates.empty()) {
                Count(start);
            }
            return left;
        }
        Count(start);
        Expression right = ParseOperand();
        if ((IsCondition(left) && !IsPath(left)) || (IsCondition(right) && !IsPath(right)) || TakeOperator()) {
            Fail(kNotSupported, start, L"comparing the result of a comparison or of band() is not documented");
        }
        if (IsPath(left) && IsPath(right)) {
            Fail(kNotSupported, start, L"comparing two paths is not documented");
        }
        // The evaluation expects paths before functions before literals.
        if (IsPath(right) || (IsConstant(left) && !IsConstant(right))) {
            constexpr Expression::Operator kMirrored[] = {Expression::Equal,   Expression::NotEqual,
                                                          Expression::Greater, Expression::GreaterOrEqual,
                                                          Expression::Less,    Expression::LessOrEqual};
            return {Expression::Compare, kMirrored[*comparison], {std::move(right), std::move(left)}};
        }
        return {Expression::Compare, *comparison, {std::move(left), std::move(right)}};
    }

    std::optional<Expression::Operator> TakeOperator()
    {
        constexpr std::pair<std::wstring_view, Expression::Operator> kOperators[] = {
            {L"=", Expression::Equal},           {L"!=", Expression::NotEqual}, {L"<=", Expression::LessOrEqual},
            {L">=", Expression::GreaterOrEqual}, {L"<", Expression::Less},      {L">", Expression::Greater}};
        for (const auto& [token, meaning] : kOperators) {
            if (Take(token)) {
                return meaning;
            }
        }
        return std::nullopt;
    }

    Expression ParseOperand()
    {
        Enter();
        Expression operand = ParsePrimary();
        --depth_;
        return operand;
    }

    Expression ParsePrimary()
    {
        const size_t start = position_;
        if (Take(L"(")) {
            Expression expression = ParseOr();
            Expect(L")", L"expected a comparison, 'and', 'or' or )");
            if (Peek() == L'[' || Peek() == L'/') {
                ContinuePath(expression, start);
            }
            return expression;
        }
        if (Peek() == L'\'' || Peek() == L'"') {
            return MakeConstant(TakeQuoted(), true);
        }
        if (IsDigit(Peek()) || (Peek() == L'.' && IsDigit(Peek(1)))) {
            Expression number = MakeConstant(TakeNumber(), false);
            if (!std::holds_alternative<Number>(number.literal.value)) {
                Fail(kNotSupported, start, L"this number has more than 64 bits");
            }
            return number;
        }
        if (Peek() == L'-') {
            Fail(kNotSupported, start, L"negative numbers are not documented as literals; quote the number: '-1'");
        }
        if (Peek() == L'$') {
            Fail(kInvalidQuery, start, L"variables are not supported");
        }
        const std::wstring function = TakeFunction();
        if (!function.empty()) {
            return ParseCall(function, start);
        }
        Expression path;
        ParseSteps(path.path);
        return path;
    }

    /// Parses the steps or predicates after a path in parentheses.
    void ContinuePath(Expression& expression, size_t start)
    {
        if (!IsPath(expression)) {
            Fail(kInvalidQuery, position_, L"only a path can be followed by steps or predicates");
        }
        auto& predicates = expression.path.back().predicates;
        while (Take(L"[")) {
            predicates.push_back(ParsePredicate());
            if (Contains(predicates.back(), IsPosition)) {
                Fail(kNotSupported, start, L"positions after a path in parentheses are not supported");
            }
        }
        if (Take(L"/")) {
            ParseSteps(expression.path);
        }
    }

    static Expression MakeConstant(std::wstring_view text, bool isQuoted)
    {
        Expression constant{Expression::Constant};
        constant.literal = {std::wstring(text), isQuoted, ParseValue(text)};
        return constant;
    }

    Expression ParseCall(const std::wstring& function, size_t start)
    {
        if (function == L"position") {
            Expect(L")", L"position() has no arguments");
            return {Expression::Position};
        }
        if (function == L"band") {
            Count(start);
            return ParseArguments(Expression::Bits, start, 2, L"band() takes two values");
        }
        if (function == L"timediff") {
            return ParseArguments(Expression::TimeDifference, start, 1, L"timediff() takes one or two times");
        }
        if (function == L"node" || function == L"comment" || function == L"processing-instruction") {
            Fail(kInvalidQuery, start, L"only names, * and text() are supported as node tests");
        }
        if (function == L"last") {
            Fail(kInvalidQuery, start, L"the context size, and so last(), is not supported");
        }
        Fail(kNotSupported, start,
             L"the function " + function + L"() is not documented; position(), band() and timediff() are");
    }

    Expression ParseArguments(Expression::Kind kind, size_t start, size_t least, const wchar_t* reason)
    {
        Expression call{kind};
        do {
            const size_t argument = position_;
            call.parts.push_back(ParseOperand());
            const Value& value = call.parts.back().literal.value;
            const bool isTime = kind == Expression::TimeDifference && std::holds_alternative<EventTime>(value);
            if (!IsPath(call.parts.back()) && !std::holds_alternative<Number>(value) && !isTime) {
                Fail(kNotSupported, argument, std::wstring(reason) + L": paths or literals");
            }
        } while (Take(L","));
        Expect(L")", L"an argument ends with , or )");
        if (call.parts.size() < least || call.parts.size() > 2) {
            Fail(kInvalidQuery, start, reason);
        }
        // As in comparisons, paths come before literals.
        if (kind == Expression::Bits && IsConstant(call.parts.front())) {
            std::swap(call.parts.front(), call.parts.back());
        }
        return call;
    }

    void ParseSteps(std::vector<Step>& path)
    {
        do {
            const size_t start = position_;
            Step step = ParseStep();
            const bool isEvent = path.empty() && predicates_ == 0;
            if (isEvent && (step.axis != Step::Child || !(step.name == L"*" || step.name == L"Event"))) {
                Fail(kInvalidQuery, start, L"a path starts with * or Event");
            }
            const bool isInner = isEvent || AnyPredicate(step, LeadsToChildren);
            const bool followsPosition =
                step.axis == Step::Child && !path.empty() && AnyPredicate(path.back(), IsPosition);
            if (followsPosition || (isInner && AnyPredicate(step, IsPosition))) {
                Fail(kInvalidQuery, start, L"positions are supported on leaf nodes only");
            }
            path.push_back(std::move(step));
        } while (Take(L"/"));
    }

    Step ParseStep()
    {
        const size_t start = position_;
        if (Peek() == L'/') {
            Fail(kInvalidQuery, start, L"absolute paths and // are not supported; only child and attribute axes are");
        }
        if (Peek() == L'.') {
            Fail(kInvalidQuery, start, L". and .. are not supported; only child and attribute axes are");
        }
        Step step;
        step.axis = Take(L"@") ? Step::Attribute : Step::Child;
        step.name = TakeNameTest();
        if (step.name != L"*" && Take(L"::")) {
            if (step.axis == Step::Attribute || (step.name != L"child" && step.name != L"attribute")) {
                Fail(kInvalidQuery, start, L"this axis is not supported; only child and attribute axes are");
            }
            step.axis = step.name == L"child" ? Step::Child : Step::Attribute;
            step.name = TakeNameTest();
        }
        if (step.name.empty()) {
            FailUnexpected(L"expected a name, *, @, a literal or a function");
        }
        if (Peek() == L':') {
            Fail(kInvalidQuery, start, L"namespaces are not supported");
        }
        if (step.name == L"text" && Take(L"(")) {
            Expect(L")", L"text() has no arguments");
            step = {Step::Text, L"text()", {}};
        }
        if (Peek() == L'(') {
            Fail(kInvalidQuery, start, L"only names, * and text() are supported as node tests");
        }
        while (Take(L"[")) {
            step.predicates.push_back(ParsePredicate());
        }
        return step;
    }

    std::wstring TakeNameTest() { return Take(L"*") ? L"*" : TakeName(); }

    Expression ParsePredicate()
    {
        Enter();
        ++predicates_;
        const size_t start = position_;
        Expression predicate = ParseOr();
        if (IsConstant(predicate) && !predicate.literal.isQuoted) { // [n] is [position()=n]
            Count(start);
            predicate = {Expression::Compare, Expression::Equal, {{Expression::Position}, std::move(predicate)}};
        }
        RequireCondition(predicate, start);
        Expect(L"]", L"expected a comparison, 'and', 'or' or ]");
        --predicates_;
        --depth_;
        return predicate;
    }

    size_t maxExpressions_;
    bool isValuePath_;
    size_t depth_ = 0;
    size_t predicates_ = 0; // number of predicates that enclose the current position
    size_t expressions_ = 0;
};

} // namespace

Query Query::Parse(std::wstring_view text, size_t maxExpressions)
{
    return Query(Parser(text, maxExpressions, false).Parse());
}

Query Query::ParseValuePath(std::wstring_view text)
{
    return Query(Parser(text, kMaxExpressions, true).Parse());
}

} // namespace orvel::replay
