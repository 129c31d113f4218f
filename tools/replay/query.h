#pragma once

#include "tools/replay/event_record.h"

#include <cstdint>

namespace orvel::replay {

/// Why a query is refused: the Event Log's error code and the place, counted in characters from 0.
struct QueryError {
    unsigned code;
    size_t position;
    std::wstring reason;
    std::wstring source = {}; // the text that the position counts in, where it is not the whole query
};

constexpr unsigned kInvalidQuery = 15001;     // ERROR_EVT_INVALID_QUERY
constexpr unsigned kQueryTooComplex = 15026;  // ERROR_EVT_FILTER_TOO_COMPLEX
constexpr size_t kMostExpressions = 20;       // EvtSubscribe page, of a query that is one XPath
constexpr size_t kMostSelectExpressions = 32; // Query Schema page, of one Select or Suppress

/// A whole number of an event or a query, of 64 bits with or without a sign.
struct WholeNumber {
    bool isNegative = false;
    uint64_t magnitude = 0;
};

/// Reads a decimal number, with or without a minus sign, or a hexadecimal one that begins with 0x. Gives nothing for
/// any other text and for what has no room in 64 bits.
std::optional<WholeNumber> ParseWholeNumber(std::wstring_view text);

/// When an event was created, as ParseEventTime gives it; nothing when it does not tell.
std::optional<uint64_t> CreationTime(const Node& event);

struct Step;
struct Judging;

/// One side of a comparison. timediff() keeps its times as two operands in `times`.
struct Operand {
    enum Kind { Path, Text, Number, TimeDifference, Position };
    Kind kind = Path;
    std::vector<Step> path;
    std::wstring text;
    std::optional<uint64_t> time; // of a text that is a time
    uint64_t number = 0;
    std::vector<Operand> times;
};

struct Expression {
    enum Kind { Or, And, Exists, Compare, Bits };
    enum Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
    Kind kind = Exists;
    Operator comparison = Equal;
    std::vector<Expression> parts; // of Or and And
    Operand left;
    Operand right;
};

/// One step of a path; an empty name stands for "*".
struct Step {
    bool isAttribute = false;
    std::wstring name;
    std::vector<Expression> predicates;
};

/// An XPath of the subset that the Event Log understands ([MS-EVEN6] 2.2.15 and the page Consuming Events): child and
/// attribute steps, "*" and names, predicates with or, and, = != < <= > >=, parentheses, texts, whole numbers,
/// position(), band() and timediff(). Immutable once made; may be used from any thread.
class Query {
public:
    /// Parses an event selector. Throws QueryError for everything that it does not fully understand.
    static Query Parse(std::wstring_view text, size_t mostExpressions = kMostExpressions);

    /// Parses the path of a value, which has no or and no and (EvtCreateRenderContext page).
    static Query ParseValuePath(std::wstring_view text);

    /// Whether an event is selected. The log's clock stands at the event's own time while it is judged, as when it was
    /// written: timediff() of its creation time is 0.
    bool Matches(const Node& event) const;

    /// Why an event is not selected, for people: the first condition that failed and the value that it met, "EventID is
    /// 1001, the query wants 1000". Empty for an event that is selected.
    std::wstring Explain(const Node& event) const;

    /// The first value that the path leads to, attribute or text of an element; false when there is none. The view
    /// lasts as long as the event.
    bool FirstValue(const Node& event, std::wstring_view& value) const;

    /// The path's names without predicates, "Event/System/TimeCreated/@SystemTime".
    std::wstring PlainPath() const;

private:
    template <typename Visit>
    bool Select(const Judging& judging, const Visit& visit) const;

    std::vector<Step> path_;
};

} // namespace orvel::replay
