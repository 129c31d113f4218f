#pragma once

#include "tools/replay/event_record.h"

namespace orvel::replay {

/// What to do about a file that is no export.
constexpr wchar_t kHowToExport[] = L"export with: wevtutil qe LOG /f:RenderedXml /e:Events";

/// Makes an export's entries of its root element, in order. Throws TextError for an element that is neither an event
/// nor a replay action, for an event without a channel, and for an action that lacks something or has too much.
std::vector<Entry> MakeEntries(Node&& root);

/// Replaces each LF that does not follow a CR by CR LF.
std::wstring WithCarriageReturns(std::wstring_view text);

} // namespace orvel::replay
