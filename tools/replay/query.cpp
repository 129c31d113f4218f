#include "tools/replay/query.h"

#include "tools/replay/event_time.h"

#include <algorithm>
#include <array>
#include <compare>

namespace orvel::replay {

/// A condition that failed: the value that it met and what it wants instead.
struct Miss {
    std::wstring met;
    std::wstring wanted; // empty where there is no value
    size_t depth;        // steps and predicates that held before
};

/// The judging of one event. With `misses` it keeps there why it failed; without, it allocates nothing, for it runs
/// once or more per event.
struct Judging {
    const Node& event;
    std::vector<Miss>* misses = nullptr;

    size_t Mark() const { return misses != nullptr ? misses->size() : 0; }
    void Forget(size_t mark) const
    {
        if (misses != nullptr) {
            misses->resize(mark);
        }
    }
};

namespace {

bool Holds(const Expression& expression, const Node& node, size_t position, const Judging& judging);

/// A value of an event for people: numbers bare, texts quoted and of bounded length.
std::wstring Shown(std::wstring_view value)
{
    constexpr size_t kLongest = 60;
    if (ParseWholeNumber(value)) {
        return std::wstring(value);
    }
    std::wstring shown = L"'" + std::wstring(value.substr(0, kLongest)) + (value.size() > kLongest ? L"...'" : L"'");
    std::replace_if(
        shown.begin(), shown.end(), [](wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\t'; }, L' ');
    return shown;
}

/// Keeps why a condition failed; `explain` gives the value that it met and what it wants.
template <typename Explain>
bool Failed(const Judging& judging, const Explain& explain)
{
    if (judging.misses != nullptr) {
        auto [met, wanted] = explain();
        judging.misses->push_back({std::move(met), std::move(wanted), 0});
    }
    return false;
}

/// Of several that failed, the one that came farthest is why, and the first of equals.
class Farthest {
public:
    explicit Farthest(const Judging& judging) : judging_(judging), best_(judging.Mark()), next_(best_) {}

    /// What was kept since the last call is of one candidate, which came through `depth` conditions.
    void Take(std::wstring_view name, size_t depth)
    {
        if (judging_.misses == nullptr) {
            return;
        }
        auto& misses = *judging_.misses;
        const auto at = [&](size_t index) { return misses.begin() + static_cast<ptrdiff_t>(index); };
        std::for_each(at(next_), misses.end(), [&](Miss& miss) { miss.depth += depth; });
        ++count_;
        if (best_ < next_ && next_ < misses.size() && misses[next_].depth > misses[best_].depth) {
            misses.erase(at(best_), at(next_));
        } else if (best_ < next_) {
            misses.resize(next_);
        }
        next_ = misses.size();
        name_ = name;
    }

    void Finish() const
    {
        if (count_ > 1 && next_ > best_) {
            Miss& miss = (*judging_.misses)[best_];
            miss.met += L" (one of " + std::to_wstring(count_) + L" " + std::wstring(name_) + L")";
        }
    }

private:
    const Judging& judging_;
    const size_t best_;
    size_t next_;
    size_t count_ = 0;
    std::wstring_view name_;
};

/// Calls `visit` with the value of each node that the steps from `step` on lead to and its name, until it gives true;
/// gives whether it did.
template <typename Visit>
bool Walk(const std::vector<Step>& path, size_t step, const Node& from, const Judging& judging, const Visit& visit)
{
    const Step& here = path[step];
    const size_t mark = judging.Mark();
    Farthest farthest(judging);
    if (here.isAttribute) {
        for (const auto& [name, value] : from.attributes) {
            if (here.name.empty() || name == here.name) {
                if (visit(value, from.name, &name)) {
                    judging.Forget(mark);
                    return true;
                }
                farthest.Take(name, 1);
            }
        }
    }
    // XPath: each predicate counts positions among what the predicates before it have left.
    std::array<size_t, kMostSelectExpressions> positions{};
    for (const Node& child : from.children) {
        size_t predicate = 0;
        if (here.isAttribute || (!here.name.empty() && child.name != here.name)) {
            continue;
        }
        while (predicate < here.predicates.size() &&
               Holds(here.predicates[predicate], child, ++positions[predicate], judging)) {
            ++predicate;
        }
        if (predicate == here.predicates.size() &&
            (step + 1 == path.size() ? visit(child.text, child.name, nullptr)
                                     : Walk(path, step + 1, child, judging, visit))) {
            judging.Forget(mark);
            return true;
        }
        farthest.Take(child.name, predicate + 1);
    }
    if (judging.Mark() == mark) {
        Failed(judging, [&] {
            const std::wstring name = here.name.empty() ? L"any" : here.name;
            return std::pair(std::wstring(from.name) + L" has no " + (here.isAttribute ? L"@" + name : name), std::wstring());
        });
    }
    farthest.Finish();
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

std::optional<uint64_t> TimeOf(const Operand& operand, const Node& node, const Judging& judging)
{
    std::optional<uint64_t> time = operand.time;
    if (operand.kind == Operand::Path) {
        Walk(operand.path, 0, node, {judging.event}, [&](std::wstring_view value, const auto&...) {
            time = ParseEventTime(value);
            return true;
        });
    }
    return time;
}

/// Consuming Events page: milliseconds from the first time to the second, or to now.
std::optional<WholeNumber> TimeDifference(const Operand& operand, const Node& node, const Judging& judging)
{
    const auto from = TimeOf(operand.times.front(), node, judging);
    const auto to =
        operand.times.size() > 1 ? TimeOf(operand.times.back(), node, judging) : CreationTime(judging.event);
    if (!from || !to) {
        return std::nullopt;
    }
    constexpr uint64_t kUnitsPerMillisecond = 10'000;
    const uint64_t distance = (std::max(*from, *to) - std::min(*from, *to)) / kUnitsPerMillisecond;
    return WholeNumber{*from > *to && distance != 0, distance};
}

/// What a condition wants, for people.
std::wstring Wanted(const Expression& expression)
{
    constexpr const wchar_t* kWords[] = {L"",         L"another than ", L"less than ",
                                         L"at most ", L"more than ",    L"at least "};
    const Operand& right = expression.right;
    return (expression.kind == Expression::Bits ? L"a bit of " : kWords[expression.comparison]) +
           (right.kind == Operand::Number ? std::to_wstring(right.number) : L"'" + right.text + L"'");
}

bool ComparePosition(const Expression& expression, const Node& node, size_t position, const Judging& judging)
{
    return Compare(expression.comparison, uint64_t{position}, expression.right.number) || Failed(judging, [&] {
               return std::pair(std::wstring(node.name) + L" is number " + std::to_wstring(position), Wanted(expression));
           });
}

bool CompareTimes(const Expression& expression, const Node& node, const Judging& judging)
{
    const auto time = TimeDifference(expression.left, node, judging);
    return (time && CompareNumber(expression.comparison, *time, expression.right.number)) || Failed(judging, [&] {
               const std::wstring met = time ? (time->isNegative ? L"-" : L"") + std::to_wstring(time->magnitude)
                                             : L"not to be had, for a time is missing";
               return std::pair(L"timediff() is " + met, Wanted(expression));
           });
}

bool CheckValue(const Expression& expression, std::wstring_view value)
{
    if (expression.kind == Expression::Compare) {
        return CompareValue(expression, value);
    }
    const auto number = expression.kind == Expression::Bits ? ParseWholeNumber(value) : std::nullopt;
    return expression.kind == Expression::Exists ||
           (number && !number->isNegative && (number->magnitude & expression.right.number) != 0);
}

bool Holds(const Expression& expression, const Node& node, size_t position, const Judging& judging)
{
    const size_t mark = judging.Mark();
    const auto partHolds = [&](const Expression& part) { return Holds(part, node, position, judging); };
    if (expression.kind == Expression::And) {
        return std::all_of(expression.parts.begin(), expression.parts.end(), partHolds);
    }
    if (expression.kind == Expression::Or) {
        const bool holds = std::any_of(expression.parts.begin(), expression.parts.end(), partHolds);
        if (holds) {
            judging.Forget(mark);
        }
        return holds;
    }
    if (expression.left.kind == Operand::Position) {
        return ComparePosition(expression, node, position, judging);
    }
    if (expression.left.kind == Operand::TimeDifference) {
        return CompareTimes(expression, node, judging);
    }
    return Walk(expression.left.path, 0, node, judging,
                [&](std::wstring_view value, std::wstring_view element, const std::wstring_view* attribute) {
                    return CheckValue(expression, value) || Failed(judging, [&] {
                               std::wstring what(element);
                               if (attribute != nullptr) {
                                   what.append(L"/@").append(*attribute);
                               }
                               return std::pair(what + L" is " + Shown(value), Wanted(expression));
                           });
                });
}

} // namespace

std::optional<uint64_t> CreationTime(const Node& event)
{
    const Node* system = event.Child(L"System");
    const Node* created = system != nullptr ? system->Child(L"TimeCreated") : nullptr;
    const std::wstring_view* time = created != nullptr ? created->Attribute(L"SystemTime") : nullptr;
    return time != nullptr ? ParseEventTime(*time) : std::nullopt;
}

template <typename Visit>
bool Query::Select(const Judging& judging, const Visit& visit) const
{
    // The first step stands for the event itself, among the log's events: it has no position.
    const Step& first = path_.front();
    return std::all_of(first.predicates.begin(), first.predicates.end(),
                       [&](const Expression& predicate) { return Holds(predicate, judging.event, 1, judging); }) &&
           (path_.size() == 1 ? visit(judging.event.text) : Walk(path_, 1, judging.event, judging, visit));
}

bool Query::Matches(const Node& event) const
{
    return Select({event}, [](const auto&...) { return true; });
}

bool Query::FirstValue(const Node& event, std::wstring_view& value) const
{
    return Select({event}, [&](std::wstring_view found, const auto&...) {
        value = found;
        return true;
    });
}

std::wstring Query::Explain(const Node& event) const
{
    std::vector<Miss> misses;
    if (Select({event, &misses}, [](const auto&...) { return true; })) {
        return {};
    }
    // The alternatives of an "or" that met the same value are told together.
    std::wstring text;
    for (auto miss = misses.begin(); miss != misses.end(); ++miss) {
        const auto isSame = [&](const Miss& other) { return other.met == miss->met; };
        if (std::any_of(misses.begin(), miss, isSame)) {
            continue;
        }
        text += (text.empty() ? L"" : L"; ") + miss->met + (miss->wanted.empty() ? L"" : L", the query wants ");
        text += miss->wanted;
        for (auto other = miss + 1; other != misses.end(); ++other) {
            text += isSame(*other) && !other->wanted.empty() ? L" or " + other->wanted : L"";
        }
    }
    return text;
}

} // namespace orvel::replay
