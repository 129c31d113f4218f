#include "lamina/manager_host.h"

#include "host/com_failure.h"
#include "host/heap_buffer.h"
#include "host/owned_handles.h"

namespace orvel {

namespace {

/// ERROR_INVALID_DATA for a value that is no text, else the registry's code.
DWORD QueryManager(HKEY key, wchar_t* buffer, DWORD& bytes)
{
    DWORD type = REG_NONE;
    const LSTATUS error = RegQueryValueExW(key, L"Manager1", nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes);
    const bool isRead = error == ERROR_SUCCESS || (error == ERROR_MORE_DATA && buffer == nullptr);
    return static_cast<DWORD>(isRead && type != REG_SZ && type != REG_EXPAND_SZ ? ERROR_INVALID_DATA : error);
}

} // namespace

HRESULT ReadManagerValue(std::wstring& out)
{
    RegistryKey key;
    DWORD error = OpenMachineKey(L"SYSTEM\\CurrentControlSet\\services\\korvex\\Parameters", key);
    if (error != ERROR_SUCCESS) {
        return HresultFromWin32(error);
    }
    DWORD bytes = 0;
    error = QueryManager(key.get(), nullptr, bytes);
    if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) {
        return HresultFromWin32(error);
    }

    // One character more than the registry is told of, so that whatever it leaves behind ends.
    const DWORD characters = bytes / sizeof(wchar_t);
    const HeapBuffer buffer = AllocateHeapBuffer(static_cast<size_t>(characters) + 1);
    if (!buffer) {
        return E_OUTOFMEMORY;
    }
    const DWORD capacity = characters * sizeof(wchar_t);
    bytes = capacity;
    error = QueryManager(key.get(), buffer.get(), bytes);
    if (error == ERROR_SUCCESS && bytes == 0) {
        buffer[0] = L'\0';
    } else if (error == ERROR_SUCCESS &&
               (bytes > capacity || bytes % sizeof(wchar_t) != 0 || buffer[bytes / sizeof(wchar_t) - 1] != L'\0')) {
        error = ERROR_INVALID_DATA;
    }
    out = buffer.get();
    return HresultFromWin32(error);
}

} // namespace orvel
