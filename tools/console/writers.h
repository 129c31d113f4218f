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

/// One JSON object per value and line, in the order written. The value is exact: a lone surrogate or a control
/// character is escaped, VT_UI8 is a plain number.
std::string ToJsonLines(const Collection& collection);

/// A text as a JSON string.
std::string Quote(std::wstring_view text);

/// An aligned table for people under a heading of its own, of up to `width` columns (0: any); line breaks in values are
/// shown as such. Where nothing was written the provider's info lines say why.
std::string ToTable(const Collection& collection, size_t width);

/// The Lamina logon as bars on one axis with durations, and its plinths; without the four timestamps, why not. Empty
/// when the collection holds nothing of the Lamina metric.
std::wstring DrawTimeline(const Collection& collection, size_t width = 0);

/// The provider's info lines of the collection, for people.
std::wstring Reasons(const Collection& collection);

/// Shows the first line in which two texts differ, marked with - and +, the place where it begins to differ, and how
/// many lines follow; empty if they are equal. Blank lines and the lines of a check's report are skipped.
std::string Difference(const std::string& expected, const std::string& actual);

} // namespace orvel::console
