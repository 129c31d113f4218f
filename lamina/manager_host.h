#pragma once

#include <windows.h>

#include <string>

namespace orvel {

/// Reads the Manager configured for the layering agent from the registry, "host" or "host:port".
///
/// Returns S_OK, also for an empty value; 0x8007000D (ERROR_INVALID_DATA) when the value is not of type REG_SZ or
/// REG_EXPAND_SZ or lacks its terminator; 0x800700EA (ERROR_MORE_DATA) when its size is odd or grew between the two
/// queries; E_OUTOFMEMORY; else the registry's code as an HRESULT. After the second query `out` holds the value up to
/// its first zero, even if it was rejected; before, `out` is unchanged. Throws std::bad_alloc.
HRESULT ReadManagerValue(std::wstring& out);

} // namespace orvel
