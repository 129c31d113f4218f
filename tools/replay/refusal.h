#pragma once

#include "tools/replay/selection.h"

#include <windows.h>

namespace orvel::replay {

/// Why EvtSubscribe fails, for people.
struct Refusal {
    DWORD code;
    std::wstring reason;
    size_t position = 0;      ///< from 1, within `source`; 0: no place in the query
    std::wstring source = {}; ///< the query, or the text of its element that is wrong

    /// The reason with the place.
    std::wstring Text() const;
};

/// Makes the selection of a subscription; both texts may be null. Throws Refusal. `isStructured` tells a QueryList.
Selection MakeSelection(const wchar_t* channel, const wchar_t* query, bool& isStructured);

} // namespace orvel::replay
