#include "lamina/manager_host.h"

#include "host/com_failure.h"
#include "host/unique_resource.h"

namespace orvel {

namespace {

LSTATUS QueryManager(HKEY key, wchar_t* buffer, DWORD& bytes)
{
    DWORD type = REG_NONE;
    LSTATUS error = RegQueryValueExW(key, L"Manager1", nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes);
    if (error == ERROR_MORE_DATA && buffer == nullptr) {
        error = ERROR_SUCCESS; // only the size was requested
    }
    if (error == ERROR_SUCCESS && type != REG_SZ && type != REG_EXPAND_SZ) {
        error = ERROR_INVALID_DATA;
    }
    return error;
}

} // namespace

HRESULT ReadManagerValue(std::wstring& out)
{
    HKEY opened = nullptr;
    LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\services\\korvex\\Parameters", 0,
                                  KEY_READ, &opened);
    const UniqueKey key(opened);
    DWORD bytes = 0;
    if (error == ERROR_SUCCESS) {
        error = QueryManager(key.get(), nullptr, bytes);
    }
    if (error != ERROR_SUCCESS) {
        return HresultFromWin32(error);
    }

    const DWORD characters = bytes / sizeof(wchar_t);
    const UniqueHeapText value = AllocateHeapText(size_t{characters} + 1); // the last one stays zero
    if (!value) {
        return E_OUTOFMEMORY;
    }
    const DWORD capacity = characters * sizeof(wchar_t);
    bytes = capacity;
    error = QueryManager(key.get(), value.get(), bytes);
    if (error == ERROR_SUCCESS && bytes != 0) {
        const bool isTerminated =
            bytes <= capacity && bytes % sizeof(wchar_t) == 0 && value[bytes / sizeof(wchar_t) - 1] == L'\0';
        error = isTerminated ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    }
    out = value.get();
    return HresultFromWin32(error);
}

} // namespace orvel
