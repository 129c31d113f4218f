#pragma once

#include "host/module_call.h"

#include <comdef.h>

#include <new>
#include <utility>

namespace orvel {

/// Makes a Win32 error an HRESULT: values of 0 or less pass unchanged.
constexpr HRESULT HresultFromWin32(DWORD error) noexcept
{
    const auto code = static_cast<HRESULT>(error);
    return code <= 0 ? code : static_cast<HRESULT>((error & 0xFFFFU) | 0x80070000U);
}

/// Runs `body` as a call into the module; every call of the host and of the Event Log runs through it. Whatever could
/// not be allocated, the caller gets the same exception: `_com_error` with E_OUTOFMEMORY.
template <typename Body>
decltype(auto) EnterModule(Body&& body)
{
    const ModuleCall call;
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        _com_issue_error(E_OUTOFMEMORY);
        throw; // never reached: the compiler does not know that _com_issue_error always throws
    }
}

} // namespace orvel
