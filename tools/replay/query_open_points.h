#pragma once

// The replay log's choices where the documentation of queries is silent. A desktop may differ; docs/replay.md lists
// them under "Open points".

#include <cstddef>
#include <string_view>

namespace orvel::replay {

/// Limits from the pages Consuming Events and QueryType, which do not define "expression". Comparisons, band() calls
/// and paths whose existence is the condition are counted.
constexpr size_t kMaxExpressions = 20;
constexpr size_t kMaxSelectExpressions = 32;

/// Compares texts case-sensitively.
inline bool EqualTexts(std::wstring_view value, std::wstring_view literal)
{
    return value == literal;
}

/// Whether "!=" is true for several nodes if one of them differs (XPath 1.0), or only if all do.
constexpr bool kOneDifferentNodeSuffices = true;

/// Whether a time without a trailing Z, such as "2026-03-02T00:00:00", is a time in UTC.
constexpr bool kTimesMayLackZ = true;

} // namespace orvel::replay
