#pragma once

#include <windows.h>
#include <oleauto.h>

#include <memory>
#include <string_view>

namespace orvel {

struct BstrDeleter {
    void operator()(OLECHAR* text) const noexcept { SysFreeString(text); }
};

/// Owner of one BSTR; empty when null. Move-only: unlike the shared `_bstr_t` of the SDK it needs no second
/// allocation, which counts here because every value written and every line logged builds two or three of them.
using UniqueBstr = std::unique_ptr<OLECHAR, BstrDeleter>;

/// Copies a NUL-terminated text. Throws `_com_error` with E_OUTOFMEMORY when it cannot be allocated.
UniqueBstr MakeBstr(const wchar_t* text);

/// Copies a counted text; an empty one gives a null BSTR. Throws `_com_error` with E_OUTOFMEMORY when it cannot be
/// allocated and with E_INVALIDARG when it is longer than a BSTR can be.
UniqueBstr MakeCountedBstr(std::wstring_view text);

} // namespace orvel
