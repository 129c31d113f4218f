#pragma once

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

/// Runs `body`, through which every call from outside enters the module. Only one thing is thrown for lack of memory,
/// `_com_error` with E_OUTOFMEMORY, whether a BSTR or a string of the standard library could not be allocated.
template <typename Body>
decltype(auto) EnterModule(Body&& body)
{
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        _com_issue_error(E_OUTOFMEMORY);
        throw;
    }
}

} // namespace orvel
