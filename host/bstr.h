#pragma once

#include "host/unique_resource.h"

#include <string_view>

namespace orvel {

/// Copies a NUL-terminated text. Throws `_com_error` with E_OUTOFMEMORY.
UniqueBstr MakeBstr(const wchar_t* text);

/// Copies a counted text; an empty one yields a null BSTR. Throws `_com_error` with E_OUTOFMEMORY, or with E_INVALIDARG
/// when the text is longer than a BSTR can be.
UniqueBstr MakeCountedBstr(std::wstring_view text);

} // namespace orvel
