#pragma once

#include "host/module_call.h"

#include <comdef.h>

#include <concepts>
#include <new>
#include <utility>

namespace orvel {

/// Converts a Win32 error, as GetLastError (DWORD) or a registry function (LSTATUS) returns it, to an HRESULT. Returns
/// values of 0 or less unchanged.
constexpr HRESULT HresultFromWin32(std::integral auto error) noexcept
{
    const auto code = static_cast<HRESULT>(error);
    return code <= 0 ? code : static_cast<HRESULT>((static_cast<DWORD>(code) & 0xFFFFU) | 0x80070000U);
}

/// Runs `body` as a call into the module: a method of the provider or the Event Log's callback. Converts std::bad_alloc
/// to `_com_error` with E_OUTOFMEMORY.
template <typename Body>
decltype(auto) EnterModule(Body&& body)
{
    const ModuleCall call;
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        throw _com_error(E_OUTOFMEMORY);
    }
}

} // namespace orvel
