#include "lamina/manager_host.h"

#include "host/com_failure.h"
#include "host/heap_buffer.h"
#include "lamina/owned_handles.h"

namespace orvel {

namespace {

DWORD QueryManager(HKEY key, DWORD& type, wchar_t* buffer, DWORD& bytes)
{
    return static_cast<DWORD>(
        RegQueryValueExW(key, L"Manager1", nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes));
}

bool IsText(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

bool IsTerminated(const wchar_t* buffer, DWORD bytes, DWORD capacity)
{
    return bytes <= capacity && bytes % sizeof(wchar_t) == 0 && buffer[bytes / sizeof(wchar_t) - 1] == L'\0';
}

} // namespace

HRESULT ReadManagerValue(std::wstring& out)
{
    RegistryKey key;
    DWORD error = OpenMachineKey(L"SYSTEM\\CurrentControlSet\\services\\korvex\\Parameters", key);
    if (error != ERROR_SUCCESS) {
        return HresultFromWin32(error);
    }
    DWORD type = REG_NONE;
    DWORD bytes = 0;
    error = QueryManager(key.get(), type, nullptr, bytes);
    if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) {
        return HresultFromWin32(error);
    }
    if (!IsText(type)) {
        return HresultFromWin32(ERROR_INVALID_DATA);
    }

    // One character more than the registry is told of, so that whatever it leaves behind ends.
    const DWORD characters = bytes / sizeof(wchar_t);
    const HeapBuffer buffer = AllocateHeapBuffer(static_cast<size_t>(characters) + 1);
    if (!buffer) {
        return E_OUTOFMEMORY;
    }
    const DWORD capacity = characters * sizeof(wchar_t);
    bytes = capacity;
    error = QueryManager(key.get(), type, buffer.get(), bytes);
    if (error == ERROR_SUCCESS) {
        if (!IsText(type)) {
            error = ERROR_INVALID_DATA;
        } else if (bytes == 0) {
            buffer[0] = L'\0';
        } else if (!IsTerminated(buffer.get(), bytes, capacity)) {
            error = ERROR_INVALID_DATA;
        }
    }
    out = buffer.get();
    return HresultFromWin32(error);
}

} // namespace orvel
