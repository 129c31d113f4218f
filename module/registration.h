#pragma once

#include <windows.h>

namespace orvel {

/// Registers the module's AppID, the provider's class and its type library; the thread has the system's locale during
/// the call. Machine-wide registration writes below HKLM\Software\Classes, registration per user below
/// HKCU\Software\Classes. During the call, the whole process sees that branch as HKCR.
///
/// Returns S_OK or the first failure. Registration stops there; whatever was already written stays. Failures are
/// 0x8007xxxx from the registry, DISP_E_EXCEPTION for a malformed script (its position is sent to the debugger), the
/// type library's own codes, and E_OUTOFMEMORY.
///
/// Any thread; calls run one after another.
HRESULT RegisterModule();

/// Removes what RegisterModule writes, in reverse. Continues after a failure and returns the first one. Skips
/// missing keys and values.
HRESULT UnregisterModule();

} // namespace orvel
