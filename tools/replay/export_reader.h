#pragma once

#include "tools/replay/xml_reader.h"

namespace orvel::replay {

/// What to do about a file that is not an export.
constexpr wchar_t kHowToExport[] = L"export with: wevtutil qe LOG /f:RenderedXml /e:Events";

/// Reads the event or action at the reader's place. Throws TextError for an element that is neither, for an event
/// without a channel, and for an action that lacks something or has too much.
Entry ReadEntry(XmlReader& reader, Arena& arena);

/// Replaces each LF that does not follow a CR by CR LF.
std::pmr::wstring WithCarriageReturns(std::wstring_view text, Node::allocator_type memory = {});

} // namespace orvel::replay
