#pragma once

#include "host/module_call.h"

#include <comdef.h>

#include <new>
#include <utility>

namespace orvel {

/// Converts a Win32 error to an HRESULT. Returns values of 0 or less unchanged.
constexpr HRESULT HresultFromWin32(DWORD error) noexcept
{
    const auto code = static_cast<HRESULT>(error);
    return code <= 0 ? code : static_cast<HRESULT>((error & 0xFFFFU) | 0x80070000U);
}

/// Runs `body` as a call into the module; every call of the host and of the Event Log runs through it. Converts
/// std::bad_alloc to `_com_error` with E_OUTOFMEMORY.
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
