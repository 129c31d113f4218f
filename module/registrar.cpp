#include "module/registrar.h"

#include "host/unique_resource.h"

namespace orvel {

namespace {

void KeepFirst(LSTATUS& first, LSTATUS status)
{
    if (first == ERROR_SUCCESS) {
        first = status;
    }
}

LSTATUS RegisterKey(HKEY parent, const ScriptKey& listed)
{
    const bool isForced = listed.mode == ScriptMode::ForceRemove;
    const REGSAM access = KEY_READ | KEY_WRITE | (isForced ? DELETE : 0); // RegDeleteTreeW requires DELETE
    HKEY opened = nullptr;
    LSTATUS status = RegCreateKeyExW(parent, listed.name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                     &opened, nullptr);
    const UniqueKey key(opened);
    if (status == ERROR_SUCCESS && isForced) {
        status = RegDeleteTreeW(key.get(), nullptr);
    }
    return status == ERROR_SUCCESS ? RegisterContents(listed, key.get()) : status;
}

LSTATUS UnregisterKey(HKEY parent, const ScriptKey& listed)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(parent, listed.name.c_str(), 0, KEY_READ | KEY_WRITE, &opened);
    const UniqueKey key(opened);
    if (status != ERROR_SUCCESS) {
        return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
    }
    LSTATUS first = UnregisterContents(listed, key.get());
    if (listed.mode == ScriptMode::NoRemove) {
        return first;
    }
    DWORD subkeys = 0;
    KeepFirst(first, RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr, nullptr));
    if (first == ERROR_SUCCESS && subkeys == 0) {
        first = RegDeleteKeyW(parent, listed.name.c_str());
    }
    return first;
}

} // namespace

LSTATUS RegisterContents(const ScriptKey& listed, HKEY key)
{
    for (const auto& [name, text] : listed.values) {
        const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
        const LSTATUS status =
            RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), size);
        if (status != ERROR_SUCCESS) {
            return status;
        }
    }
    for (const ScriptKey& child : listed.keys) {
        const LSTATUS status = RegisterKey(key, child);
        if (status != ERROR_SUCCESS) {
            return status;
        }
    }
    return ERROR_SUCCESS;
}

LSTATUS UnregisterContents(const ScriptKey& listed, HKEY key)
{
    LSTATUS first = ERROR_SUCCESS;
    for (auto child = listed.keys.rbegin(); child != listed.keys.rend(); ++child) {
        KeepFirst(first, UnregisterKey(key, *child));
    }
    for (const auto& [name, text] : listed.values) {
        const LSTATUS status = RegDeleteValueW(key, name.c_str());
        KeepFirst(first, status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status);
    }
    return first;
}

} // namespace orvel
