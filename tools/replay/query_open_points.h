#pragma once

// What the documentation of the Event Log's queries leaves open, and what the replay log does there. Each of these may
// differ on a desktop; docs/replay.md lists them under "Open points".

#include <cstddef>
#include <string_view>

namespace orvel::replay {

/// The pages limit a query to 20 expressions (Consuming Events) and a Select or Suppress to 32 (QueryType), and do not
/// say what an expression is. Counted are comparisons, band() calls and paths whose existence is the condition.
constexpr size_t kMostExpressions = 20;
constexpr size_t kMostSelectExpressions = 32;

/// Whether the platform compares texts without regard to case is not documented.
inline bool EqualTexts(std::wstring_view value, std::wstring_view literal)
{
    return value == literal;
}

/// Whether "!=" holds for several nodes when one of them differs, as XPath 1.0 has it, or when all of them do.
constexpr bool kOneDifferentNodeSuffices = true;

/// Whether a time without a trailing Z, "2026-03-02T00:00:00", is a time in UTC.
constexpr bool kTimesMayLackZ = true;

} // namespace orvel::replay
