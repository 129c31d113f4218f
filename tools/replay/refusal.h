#pragma once

#include "tools/replay/log.h"
#include "tools/replay/selection.h"

#include <windows.h>

namespace orvel::replay {

/// Why EvtSubscribe fails.
struct Refusal {
    DWORD code; ///< kNotSupported for queries that the documentation does not exclude
    std::wstring reason;
    size_t position = 0;      ///< in characters of `source`, from 1; 0: unknown
    std::wstring source = {}; ///< the query, or the text of the element with the mistake

    /// Returns the reason with the position.
    std::wstring Text() const;
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
