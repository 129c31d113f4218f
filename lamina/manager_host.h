#pragma once

#include <windows.h>

#include <string>

namespace orvel {

/// Reads the Manager that the layering agent is configured with: "host" or "host:port", as it is stored.
///
/// S_OK: `out` holds the value, perhaps empty.
/// 0x8007000D (ERROR_INVALID_DATA): not a text (REG_SZ or REG_EXPAND_SZ), or one stored without its terminator.
/// 0x800700EA (ERROR_MORE_DATA): the value has an odd size, or grew while it was read.
/// E_OUTOFMEMORY: no room on the process heap. Any other code is the registry's, as an HRESULT.
/// A value that was read but rejected is in `out` all the same, up to its first zero; before that `out` is untouched.
HRESULT ReadManagerValue(std::wstring& out);

} // namespace orvel
