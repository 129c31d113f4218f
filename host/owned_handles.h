#pragma once

#include <windows.h>

#include <memory>

namespace orvel {

struct HandleCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
    void operator()(HANDLE file) const noexcept { CloseHandle(file); }
};

/// Owner of one open registry key; empty when null.
using RegistryKey = std::unique_ptr<HKEY__, HandleCloser>;
/// Owner of one open file; empty when null, never INVALID_HANDLE_VALUE.
using FileHandle = std::unique_ptr<void, HandleCloser>;

/// Opens a key under HKEY_LOCAL_MACHINE for reading. Gives the Win32 code; `key` is filled only for ERROR_SUCCESS.
inline DWORD OpenMachineKey(const wchar_t* subkey, RegistryKey& key) noexcept
{
    HKEY opened = nullptr;
    const LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey, 0, KEY_READ, &opened);
    key.reset(error == ERROR_SUCCESS ? opened : nullptr);
    return static_cast<DWORD>(error);
}

} // namespace orvel
