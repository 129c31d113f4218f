#pragma once

#include "tools/replay/event_record.h"

namespace orvel::replay {

/// Parses an XML document with MSXML. Works on a thread of its own, so that the caller's COM apartment is left alone;
/// may be called from any thread. Throws TextError for a text that is not well-formed or nests
/// deeper than 64 elements.
Node ReadXml(std::wstring_view text);

} // namespace orvel::replay
