#pragma once

#include "tools/replay/event_record.h"
#include "tools/replay/event_value.h"
#include "tools/replay/query_open_points.h"

#include <memory>
#include <vector>

namespace orvel::replay {

constexpr unsigned kInvalidQuery = 15001;    // ERROR_EVT_INVALID_QUERY
constexpr unsigned kQueryTooComplex = 15026; // ERROR_EVT_FILTER_TOO_COMPLEX
constexpr unsigned kNotUnderstood = 50;      // ERROR_NOT_SUPPORTED

/// Why a query is refused. Codes of the Event Log stand for what the documentation forbids, kNotUnderstood for what it
/// leaves open and the replay log does not evaluate.
struct QueryError {
    unsigned code;
    size_t position; // in characters from 0
    std::wstring reason;
    std::wstring source = {}; // the text that the position counts in, if it is not the whole query
};

struct Expression;

/// One step of a location path. Text is the node test text(); an empty name is "*".
struct Step {
    enum Axis { Child, Attribute, Text };
    Axis axis = Child;
    std::wstring name;
    std::vector<Expression> predicates;
};

/// A parsed expression. Or, And, Compare and Bits are true or false; a path stands for the nodes it leads to; the rest
/// are operands.
struct Expression {
    enum Kind { Or, And, Compare, Bits, Path, Constant, TimeDifference, Position };
    enum Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
    Kind kind = Path;
    Operator comparison = Equal;                 // of Compare
    std::vector<Expression> parts = {};          // operands of Or, And, Compare, Bits and TimeDifference
    std::vector<Step> path = {};                 // of Path
    std::shared_ptr<const Literal> literal = {}; // of Constant
};

/// Why a query does not select an event.
struct QueryMiss {
    size_t conditions = 0;  // that held before the one that failed
    size_t depth = 0;       // steps of the path that led there
    std::wstring text = {}; // "EventID is 1001, the query wants 1000"
};

/// An XPath of the subset that the Event Log supports: [MS-EVEN6] 2.2.15 and the page Consuming Events. Immutable; may
/// be used from any thread.
class Query {
public:
    /// Parses an event selector. Throws QueryError.
    static Query Parse(std::wstring_view text, size_t mostExpressions = kMostExpressions);

    /// Parses the path of a value, which has neither "or" nor "and" (EvtCreateRenderContext page). Throws QueryError.
    static Query ParseValuePath(std::wstring_view text);

    /// Whether the event is selected. The current time is the time of the event, as when it was written.
    bool Matches(const Node& event) const;

    /// Why an event that the query does not match is not selected.
    QueryMiss Explain(const Node& event) const;

    /// Finds the first value of the value path: an attribute, or the text of an element. Returns false if there is
    /// none. The view is valid as long as the event.
    bool FirstValue(const Node& event, std::wstring_view& value) const;

    /// The names of the value path without predicates, "Event/System/TimeCreated/@SystemTime".
    std::wstring PlainPath() const;

private:
    Expression root_;
};

/// When an event was created, as ParseEventTime returns it.
std::optional<uint64_t> CreationTime(const Node& event);

} // namespace orvel::replay
