#pragma once

#include <windows.h>

namespace orvel {

/// Registers the module: the module's script, then the class's script and the provider's type library. The thread's
/// locale is the system's for that time. Gives S_OK or the first failure, after which nothing more is done and what was
/// made stays: E_ACCESSDENIED and other registry failures as 0x8007xxxx, DISP_E_EXCEPTION for a malformed script (whose
/// place goes to the debugger), the type library's own codes, E_OUTOFMEMORY.
///
/// Machine-wide registration writes to HKLM\Software\Classes, registration per user to HKCU\Software\Classes, each only
/// there, and never through the merged view HKCR, where a write may land in either. For the type library the whole
/// process sees that branch as HKCR while the call lasts.
///
/// Any thread; calls are made one after the other.
HRESULT RegisterModule() noexcept;

/// Removes what RegisterModule makes, in reverse. Goes on after a failure and gives the first one. What is not there
/// is no failure.
HRESULT UnregisterModule() noexcept;

} // namespace orvel
