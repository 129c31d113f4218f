#pragma once

#include "tools/replay/log.h"
#include "tools/replay/selection.h"

#include <windows.h>

namespace orvel::replay {

/// Why EvtSubscribe fails.
struct Refusal {
    DWORD code; ///< kNotUnderstood for queries that the documentation does not exclude
    std::wstring reason;
    size_t position = 0;      ///< from 1, within `source`; 0 if the reason has no place in the query
    std::wstring source = {}; ///< the query, or the text of the element with the mistake

    /// The reason with the place.
    std::wstring Text() const;
};

/// Why the last subscription of any thread was refused, or an action of a replay failed; empty after a success.
void SetLastRefusal(std::wstring reason);
std::wstring LastRefusal();

/// Makes the selection of a subscription; both texts may be null. `isStructured` is set to whether the query is a
/// QueryList. Throws Refusal.
Selection MakeSelection(const wchar_t* channel, const wchar_t* query, bool& isStructured);

/// Throws Refusal if the selection names a channel that cannot be subscribed to.
void CheckChannels(const Selection& selection, bool isStructured, const Log& log);

} // namespace orvel::replay
