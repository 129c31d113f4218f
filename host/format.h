#pragma once

#include <string>

namespace orvel {

/// Formats as the Windows printf functions do: "%s" takes a wide string. Returns an empty text for an invalid format.
/// Throws `_com_error` with E_OUTOFMEMORY, and std::bad_alloc.
std::wstring FormatString(const wchar_t* format, ...);

} // namespace orvel
