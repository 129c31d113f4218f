#include "tools/replay/event_time.h"
#include "tools/replay/query.h"

#include <algorithm>
#include <limits>

namespace orvel::replay {

namespace {

constexpr size_t kDeepest = 64;

bool IsNameCharacter(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'_' || c == L'-' ||
           c == L'.' || static_cast<uint32_t>(c) >= 0x80;
}

bool IsDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

/// Recursive descent with one character of look-ahead. Whatever it is not sure of is refused.
class Parser {
public:
    Parser(std::wstring_view text, size_t mostExpressions, bool isValuePath)
        : text_(text), mostExpressions_(mostExpressions), isValuePath_(isValuePath)
    {
    }

    std::vector<Step> Parse()
    {
        SkipSpace();
        const size_t start = position_;
        auto path = ParsePath();
        if (path.front().isAttribute || !(path.front().name.empty() || path.front().name == L"Event")) {
            Refuse(start, L"a path begins with * or Event");
        }
        if (position_ != text_.size()) {
            Refuse(position_, L"the query should end here");
        }
        for (const Expression& predicate : path.front().predicates) {
            if (AsksPosition(predicate)) {
                Refuse(start, L"an event has no position among the events that are still to come");
            }
        }
        return path;
    }

private:
    [[noreturn]] static void Refuse(size_t position, const wchar_t* reason, unsigned code = kInvalidQuery)
    {
        throw QueryError{code, position, reason};
    }

    wchar_t Peek() const { return position_ < text_.size() ? text_[position_] : L'\0'; }

    void SkipSpace()
    {
        while (Peek() == L' ' || Peek() == L'\t' || Peek() == L'\r' || Peek() == L'\n') {
            ++position_;
        }
    }

    bool Take(std::wstring_view token)
    {
        const bool found = text_.substr(position_).starts_with(token);
        if (found) {
            position_ += token.size();
            SkipSpace();
        }
        return found;
    }

    void Expect(std::wstring_view token, const wchar_t* reason)
    {
        if (!Take(token)) {
            Refuse(position_, reason);
        }
    }

    bool TakeWord(std::wstring_view word)
    {
        const size_t end = position_ + word.size();
        return !(end < text_.size() && IsNameCharacter(text_[end])) && Take(word);
    }

    /// A name, "*" (empty) or nothing (false).
    bool TakeName(std::wstring& name)
    {
        const size_t start = position_;
        if (Take(L"*")) {
            return true;
        }
        if (IsDigit(Peek()) || Peek() == L'-' || Peek() == L'.') {
            return false;
        }
        while (position_ < text_.size() && IsNameCharacter(text_[position_])) {
            ++position_;
        }
        name = text_.substr(start, position_ - start);
        SkipSpace();
        return !name.empty();
    }

    std::vector<Step> ParsePath()
    {
        std::vector<Step> path;
        do {
            Step step;
            const size_t start = position_;
            step.isAttribute = Take(L"@");
            if (!TakeName(step.name)) {
                Refuse(position_, L"a name, * or @ should stand here");
            }
            if (Peek() == L'(' || Peek() == L':') {
                Refuse(start, L"this function, axis or namespace is not known to the Event Log");
            }
            while (!step.isAttribute && Take(L"[")) {
                step.predicates.push_back(ParsePredicate());
            }
            path.push_back(std::move(step));
        } while (!path.back().isAttribute && Take(L"/"));
        return path;
    }

    Expression ParsePredicate()
    {
        if (++depth_ > kDeepest) {
            Refuse(position_, L"predicates and parentheses nest too deep", kQueryTooComplex);
        }
        Expression expression;
        if (IsDigit(Peek())) { // [n] is [position() = n], but only when nothing else stands there
            const size_t start = position_;
            Operand number = ParseNumber();
            if (Peek() == L']') {
                CountExpression(start);
                expression.kind = Expression::Compare;
                expression.left.kind = Operand::Position;
                expression.right = std::move(number);
            } else {
                position_ = start;
            }
        }
        if (expression.kind == Expression::Exists) {
            expression = ParseOr();
        }
        Expect(L"]", L"a comparison, 'and', 'or' or ] should stand here");
        --depth_;
        return expression;
    }

    Expression ParseOr() { return ParseSeries(Expression::Or, L"or", &Parser::ParseAnd); }

    Expression ParseAnd() { return ParseSeries(Expression::And, L"and", &Parser::ParseTerm); }

    Expression ParseSeries(Expression::Kind kind, std::wstring_view word, Expression (Parser::*parsePart)())
    {
        Expression series;
        series.kind = kind;
        size_t start = position_;
        do {
            if (!series.parts.empty() && isValuePath_) {
                Refuse(start, L"the path of a value has no 'or' and no 'and'");
            }
            series.parts.push_back((this->*parsePart)());
            start = position_;
        } while (TakeWord(word));
        if (series.parts.size() > 1) {
            return series;
        }
        Expression only = std::move(series.parts.front());
        return only;
    }

    Expression ParseTerm()
    {
        if (Take(L"(")) {
            if (++depth_ > kDeepest) {
                Refuse(position_, L"predicates and parentheses nest too deep", kQueryTooComplex);
            }
            Expression expression = ParseOr();
            Expect(L")", L"a comparison, 'and', 'or' or ) should stand here");
            --depth_;
            return expression;
        }
        const size_t start = position_;
        Expression expression;
        if (TakeCall(L"band")) {
            CountExpression(start);
            expression.kind = Expression::Bits;
            expression.left = ParseOperand();
            Expect(L",", L"band() takes two arguments");
            expression.right = ParseOperand();
            Expect(L")", L"band() ends with )");
            OrderOperands(expression);
            if (expression.left.kind != Operand::Path || expression.right.kind != Operand::Number) {
                Refuse(start, L"band() compares a path and a number");
            }
            return expression;
        }
        expression.left = ParseOperand();
        if (!TakeOperator(expression.comparison)) {
            if (expression.left.kind != Operand::Path) {
                Refuse(start, L"this is no condition");
            }
            if (expression.left.path.back().predicates.empty()) { // otherwise those are the expressions
                CountExpression(start);
            }
            return expression;
        }
        CountExpression(start);
        expression.kind = Expression::Compare;
        expression.right = ParseOperand();
        OrderOperands(expression);
        CheckComparison(expression, start);
        return expression;
    }

    void CountExpression(size_t start)
    {
        if (++expressions_ > mostExpressions_) {
            Refuse(start, L"the query has too many expressions", kQueryTooComplex);
        }
    }

    bool TakeCall(std::wstring_view name)
    {
        const size_t start = position_;
        if (TakeWord(name) && Take(L"(")) {
            return true;
        }
        position_ = start;
        return false;
    }

    bool TakeOperator(Expression::Operator& comparison)
    {
        constexpr std::pair<std::wstring_view, Expression::Operator> kOperators[] = {
            {L"=", Expression::Equal},           {L"!=", Expression::NotEqual}, {L"<=", Expression::LessOrEqual},
            {L">=", Expression::GreaterOrEqual}, {L"<", Expression::Less},      {L">", Expression::Greater}};
        for (const auto& [token, meaning] : kOperators) {
            if (Take(token)) {
                comparison = meaning;
                return true;
            }
        }
        return false;
    }

    Operand ParseOperand()
    {
        Operand operand;
        const size_t start = position_;
        if (++depth_ > kDeepest) {
            Refuse(start, L"paths and calls nest too deep", kQueryTooComplex);
        }
        if (Peek() == L'\'' || Peek() == L'"') {
            const size_t end = text_.find(Peek(), position_ + 1);
            if (end == std::wstring_view::npos) {
                Refuse(start, L"this text does not end");
            }
            operand.kind = Operand::Text;
            operand.text = text_.substr(start + 1, end - start - 1);
            operand.time = ParseEventTime(operand.text);
            position_ = end + 1;
            SkipSpace();
        } else if (IsDigit(Peek())) {
            operand = ParseNumber();
        } else if (TakeCall(L"position")) {
            operand.kind = Operand::Position;
            Expect(L")", L"position() takes no argument");
        } else if (TakeCall(L"timediff")) {
            operand.kind = Operand::TimeDifference;
            do {
                operand.times.push_back(ParseOperand());
                const Operand& time = operand.times.back();
                if (time.kind != Operand::Path && !time.time) {
                    Refuse(start, L"timediff() takes paths and times");
                }
            } while (operand.times.size() < 2 && Take(L","));
            Expect(L")", L"timediff() ends with )");
        } else {
            operand.path = ParsePath();
        }
        --depth_;
        return operand;
    }

    Operand ParseNumber()
    {
        Operand operand;
        operand.kind = Operand::Number;
        const size_t start = position_;
        while (position_ < text_.size() && IsNameCharacter(text_[position_])) {
            ++position_;
        }
        const auto number = ParseWholeNumber(text_.substr(start, position_ - start));
        if (!number || text_.substr(start, 2) == L"0x") {
            Refuse(start, L"this is not a decimal whole number of 64 bits");
        }
        operand.number = number->magnitude;
        SkipSpace();
        return operand;
    }

    /// Puts the literal to the right: "1 < a" becomes "a > 1".
    static void OrderOperands(Expression& expression)
    {
        constexpr Expression::Operator kMirrored[] = {Expression::Equal,   Expression::NotEqual,
                                                      Expression::Greater, Expression::GreaterOrEqual,
                                                      Expression::Less,    Expression::LessOrEqual};
        if (expression.left.kind == Operand::Text || expression.left.kind == Operand::Number) {
            std::swap(expression.left, expression.right);
            expression.comparison = kMirrored[expression.comparison];
        }
    }

    static bool AsksPosition(const Expression& expression)
    {
        return expression.left.kind == Operand::Position ||
               std::any_of(expression.parts.begin(), expression.parts.end(), &Parser::AsksPosition);
    }

    static void CheckComparison(const Expression& expression, size_t start)
    {
        const Operand& left = expression.left;
        const Operand& right = expression.right;
        const bool isText = left.kind == Operand::Path && right.kind == Operand::Text;
        const bool isOrder =
            expression.comparison != Expression::Equal && expression.comparison != Expression::NotEqual;
        if (!isText && (left.kind == Operand::Text || right.kind != Operand::Number)) {
            Refuse(start, L"one side is a literal, and only a path is compared with a text");
        }
        if (isText && isOrder && !right.time) {
            Refuse(start, L"only numbers and times have an order");
        }
    }

    std::wstring_view text_;
    size_t mostExpressions_;
    bool isValuePath_;
    size_t position_ = 0;
    size_t depth_ = 0;
    size_t expressions_ = 0;
};

} // namespace

std::optional<WholeNumber> ParseWholeNumber(std::wstring_view text)
{
    WholeNumber number;
    unsigned base = 10;
    if (text.starts_with(L"-")) {
        number.isNegative = true;
        text.remove_prefix(1);
    } else if (text.starts_with(L"0x")) {
        base = 16;
        text.remove_prefix(2);
    }
    for (const wchar_t c : text) {
        const unsigned digit = IsDigit(c)               ? static_cast<unsigned>(c - L'0')
                               : c >= L'a' && c <= L'f' ? static_cast<unsigned>(c - L'a') + 10
                               : c >= L'A' && c <= L'F' ? static_cast<unsigned>(c - L'A') + 10
                                                        : base;
        if (digit >= base || number.magnitude > (std::numeric_limits<uint64_t>::max() - digit) / base) {
            return std::nullopt;
        }
        number.magnitude = number.magnitude * base + digit;
    }
    number.isNegative = number.isNegative && number.magnitude != 0;
    return text.empty() ? std::nullopt : std::optional(number);
}

Query Query::Parse(std::wstring_view text, size_t mostExpressions)
{
    Query query;
    query.path_ = Parser(text, mostExpressions, false).Parse();
    return query;
}

Query Query::ParseValuePath(std::wstring_view text)
{
    Query query;
    query.path_ = Parser(text, kMostExpressions, true).Parse();
    return query;
}

std::wstring Query::PlainPath() const
{
    std::wstring plain;
    for (const Step& step : path_) {
        plain.append(plain.empty() ? L"" : L"/").append(step.isAttribute ? L"@" : L"");
        plain.append(step.name.empty() ? L"*" : step.name);
    }
    return plain;
}

} // namespace orvel::replay
