#pragma once

#include <string>

namespace orvel::replay {

struct Log;
class Selection;

constexpr unsigned kInvalidQuery = 15001;    // ERROR_EVT_INVALID_QUERY
constexpr unsigned kQueryTooComplex = 15026; // ERROR_EVT_FILTER_TOO_COMPLEX
constexpr unsigned kNotSupported = 50;       // ERROR_NOT_SUPPORTED

/// Thrown for a query or a subscription that is refused. A query's code is kNotSupported if the documentation leaves
/// the construct open, else the Event Log's code for an invalid query.
struct Refusal {
    unsigned code;
    std::wstring reason;
    size_t position = 0;      ///< in characters of `source`, from 0
    std::wstring source = {}; ///< the query, or the text of the element with the mistake; empty: the place is unknown

    /// Returns the reason with the position.
    std::wstring Text() const
    {
        return source.empty() ? reason : reason + L" (at character " + std::to_wstring(position + 1) + L")";
    }
};

/// Stores and returns why the last subscription of any thread was refused, or an action of a replay failed; empty after
/// a success.
void SetLastRefusal(std::wstring reason);
std::wstring LastRefusal();

/// Parses the arguments of a subscription, both of which may be null. Throws Refusal.
Selection MakeSelection(const wchar_t* channel, const wchar_t* query);

/// Checks that every channel of the selection can be subscribed. Throws Refusal.
void CheckChannels(const Selection& selection, const Log& log);

} // namespace orvel::replay
