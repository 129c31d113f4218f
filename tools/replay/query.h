#pragma once

#include "tools/replay/event_record.h"
#include "tools/replay/event_value.h"
#include "tools/replay/refusal.h"

#include <utility>
#include <vector>

namespace orvel::replay {

/// Limits from the pages Consuming Events and QueryType, which do not define "expression". Comparisons, band() calls
/// and paths whose existence is the condition are counted.
constexpr size_t kMaxExpressions = 20;
constexpr size_t kMaxSelectExpressions = 32;

struct Expression;

/// A step of a location path. Text is the node test text().
struct Step {
    enum Axis { Child, Attribute, Text };
    Axis axis = Child;
    std::wstring name; // "*" for any
    std::vector<Expression> predicates;
};

/// A literal of a query.
struct Literal {
    std::wstring text;
    bool isQuoted = false;
    Value value;
};

/// A parsed expression. Or, And, Compare and Bits (a call of band()) are true or false, a path selects nodes, and the
/// others are operands.
struct Expression {
    enum Kind { Or, And, Compare, Bits, Path, Constant, TimeDifference, Position };
    enum Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
    Kind kind = Path;
    Operator comparison = Equal;        // of Compare
    std::vector<Expression> parts = {}; // operands of Or, And, Compare, Bits and TimeDifference
    std::vector<Step> path = {};        // of Path
    Literal literal = {};               // of Constant
};

/// How near a query came to selecting an event.
struct Nearness {
    size_t conditions = 0; // number of conditions that are true beside the one that failed
    size_t depth = 0;      // number of path steps to the condition that failed
    auto operator<=>(const Nearness&) const = default;
};

/// Why a query does not select an event.
struct Explanation {
    /// A failed condition: the value found and, unless a node is missing, the value that the query wants.
    struct Failure {
        std::wstring found;
        std::wstring wanted;
    };
    Nearness nearness;
    std::vector<Failure> failures;

    /// Returns a text such as "EventID is 1001, the query wants 1000".
    std::wstring Text() const;
};

/// A query in the XPath subset that the Event Log supports: [MS-EVEN6] 2.2.15 and the page Consuming Events. Immutable
/// and thread-safe.
class Query {
public:
    /// Parses an event selector with at most `maxExpressions` expressions. Throws Refusal.
    static Query Parse(std::wstring_view text, size_t maxExpressions = kMaxExpressions);

    /// Parses a value path, which cannot have "or" and "and" (EvtCreateRenderContext page). Throws Refusal.
    static Query ParseValuePath(std::wstring_view text);

    /// Returns whether the query selects the event. The current time is the time of the event.
    bool Matches(const Node& event) const;

    /// Explains why the query does not select the event. Call it only if Matches returned false.
    Explanation Explain(const Node& event) const;

    /// Returns the first value of the value path, if any: an attribute, or the text of an element. The view is valid as
    /// long as the event.
    std::optional<std::wstring_view> FirstValue(const Node& event) const;

    /// Returns the names of the value path without predicates, "Event/System/TimeCreated/@SystemTime".
    std::wstring PlainPath() const;

private:
    explicit Query(Expression root) : root_(std::move(root)) {}

    Expression root_;
};

/// Returns the event's creation time as ParseEventTime does.
std::optional<uint64_t> CreationTime(const Node& event);

} // namespace orvel::replay
