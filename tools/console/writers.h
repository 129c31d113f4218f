#pragma once

#include "tools/console/host_objects.h"

#include <string>
#include <vector>

namespace orvel::console {

/// The values of one metric in one collection.
struct Collection {
    unsigned number; ///< from 1
    std::wstring metric;
    std::vector<MetricValue> values;
    std::vector<std::wstring> infoLines; ///< that the provider logged meanwhile
};

/// Returns one JSON object per value and line, in the order written. Lone surrogates and control characters are
/// escaped; VT_UI8 is a number.
std::string ToJsonLines(const Collection& collection);

/// Returns a text as a JSON string.
std::string Quote(std::wstring_view text);

/// Returns an aligned table with a heading, as wide as the terminal. If nothing was written, the provider's info lines
/// say why.
std::string ToTable(const Collection& collection);

/// Draws the Lamina logon as bars on one axis with durations, and lists its plinths; says why if a timestamp is
/// missing. Empty if the collection has no value of the Lamina metric.
std::wstring DrawTimeline(const Collection& collection, size_t width = 0);

/// Returns the provider's info lines of the collection, indented.
std::wstring Reasons(const Collection& collection);

/// Shows the first line in which two texts differ, marked with - and +, the place where it begins to differ, and how
/// many lines follow; empty if they are equal. Blank lines and the lines of a check's report are skipped.
std::string Difference(const std::string& expected, const std::string& actual);

} // namespace orvel::console
