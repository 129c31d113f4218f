#pragma once

#include <string>

namespace orvel {

/// Formats as the Windows printf does: "%s" takes a wide string. A format that cannot be printed gives an empty text.
/// Throws `_com_error` with E_OUTOFMEMORY when the process heap has no room for the text.
std::wstring FormatString(const wchar_t* format, ...);

} // namespace orvel
