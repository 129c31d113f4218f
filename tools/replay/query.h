#pragma once

#include "tools/replay/event_record.h"
#include "tools/replay/event_value.h"

#include <memory>
#include <vector>

namespace orvel::replay {

constexpr unsigned kInvalidQuery = 15001;    // ERROR_EVT_INVALID_QUERY
constexpr unsigned kQueryTooComplex = 15026; // ERROR_EVT_FILTER_TOO_COMPLEX
constexpr unsigned kNotSupported = 50;       // ERROR_NOT_SUPPORTED

/// Limits from the pages Consuming Events and QueryType, which do not define "expression". Comparisons, band() calls
/// and paths whose existence is the condition are counted.
constexpr size_t kMaxExpressions = 20;
constexpr size_t kMaxSelectExpressions = 32;

/// Thrown for a query that is refused. The code is kNotSupported if the documentation leaves the construct open, else
/// the Event Log's code for an invalid query.
struct QueryError {
    unsigned code;
    size_t position; // in characters, from 0
    std::wstring reason;
    std::wstring source = {}; // the text that `position` refers to; empty: the whole query
};

struct Expression;

/// A step of a location path. Text is the node test text(); an empty name stands for "*".
struct Step {
    enum Axis { Child, Attribute, Text };
    Axis axis = Child;
    std::wstring name;
    std::vector<Expression> predicates;
};

/// A parsed expression. Or, And, Compare and Bits (a call of band()) are true or false, a path selects nodes, and the
/// others are operands.
struct Expression {
    enum Kind { Or, And, Compare, Bits, Path, Constant, TimeDifference, Position };
    enum Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
    Kind kind = Path;
    Operator comparison = Equal;                 // of Compare
    std::vector<Expression> parts = {};          // operands of Or, And, Compare, Bits and TimeDifference
    std::vector<Step> path = {};                 // of Path
    std::shared_ptr<const Literal> literal = {}; // of Constant
};

/// How near a query came to selecting an event.
struct Nearness {
    size_t conditions = 0; // number of conditions that are true beside the one that failed
    size_t depth = 0;      // number of path steps to the condition that failed
    auto operator<=>(const Nearness&) const = default;
};

/// Why a query does not select an event.
struct QueryExplanation {
    Nearness nearness;
    std::wstring text; // "EventID is 1001, the query wants 1000"
};

/// A query in the XPath subset that the Event Log supports: [MS-EVEN6] 2.2.15 and the page Consuming Events. Immutable
/// and thread-safe.
class Query {
public:
    /// Parses an event selector with at most `maxExpressions` expressions. Throws QueryError.
    static Query Parse(std::wstring_view text, size_t maxExpressions = kMaxExpressions);

    /// Parses a value path, which cannot have "or" and "and" (EvtCreateRenderContext page). Throws QueryError.
    static Query ParseValuePath(std::wstring_view text);

    /// Returns whether the query selects the event. The current time is the time of the event.
    bool Matches(const Node& event) const;

    /// Explains why the query does not select the event. Call it only if Matches returned false.
    QueryExplanation Explain(const Node& event) const;

    /// Returns the first value of the value path, if any: an attribute, or the text of an element. The view is valid as
    /// long as the event.
    std::optional<std::wstring_view> FirstValue(const Node& event) const;

    /// Returns the names of the value path without predicates, "Event/System/TimeCreated/@SystemTime".
    std::wstring PlainPath() const;

private:
    Expression root_;
};

/// Returns the event's creation time as ParseEventTime does.
std::optional<uint64_t> CreationTime(const Node& event);

} // namespace orvel::replay
