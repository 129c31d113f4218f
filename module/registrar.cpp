#include "module/registrar.h"

#include "host/owned_handles.h"

namespace orvel {

namespace {

LSTATUS UnlessAbsent(LSTATUS status)
{
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

void KeepFirst(LSTATUS& first, LSTATUS status)
{
    first = first == ERROR_SUCCESS ? status : first;
}

HKEY Root(ScriptRoot root, HKEY classes)
{
    return root == ScriptRoot::Classes ? classes : root == ScriptRoot::User ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

LSTATUS SetValue(HKEY key, const wchar_t* name, const ScriptValue& value)
{
    if (const auto* text = std::get_if<std::wstring>(&value)) {
        return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text->c_str()),
                              static_cast<DWORD>((text->size() + 1) * sizeof(wchar_t)));
    }
    const DWORD number = std::get<std::uint32_t>(value);
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
}

LSTATUS RegisterKey(HKEY parent, const ScriptKey& listed);

LSTATUS RegisterContent(HKEY key, const ScriptKey& listed)
{
    LSTATUS status = listed.value ? SetValue(key, nullptr, *listed.value) : ERROR_SUCCESS;
    for (auto value = listed.values.begin(); status == ERROR_SUCCESS && value != listed.values.end(); ++value) {
        status = SetValue(key, value->first.c_str(), value->second);
    }
    for (auto child = listed.keys.begin(); status == ERROR_SUCCESS && child != listed.keys.end(); ++child) {
        status = RegisterKey(key, *child);
    }
    return status;
}

LSTATUS RegisterKey(HKEY parent, const ScriptKey& listed)
{
    LSTATUS status = ERROR_SUCCESS;
    if (listed.mode == ScriptMode::ForceRemove || listed.mode == ScriptMode::Delete) {
        status = UnlessAbsent(RegDeleteTreeW(parent, listed.name.c_str()));
    }
    if (status != ERROR_SUCCESS || listed.mode == ScriptMode::Delete) {
        return status;
    }
    HKEY opened = nullptr;
    status = RegCreateKeyExW(parent, listed.name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                             nullptr, &opened, nullptr);
    const RegistryKey key(opened);
    return status == ERROR_SUCCESS ? RegisterContent(opened, listed) : status;
}

LSTATUS UnregisterKey(HKEY parent, const ScriptKey& listed);

LSTATUS UnregisterContent(HKEY key, const ScriptKey& listed)
{
    LSTATUS first = ERROR_SUCCESS;
    for (auto child = listed.keys.rbegin(); child != listed.keys.rend(); ++child) {
        KeepFirst(first, UnregisterKey(key, *child));
    }
    for (const auto& [name, value] : listed.values) {
        KeepFirst(first, UnlessAbsent(RegDeleteValueW(key, name.c_str())));
    }
    return first;
}

LSTATUS UnregisterKey(HKEY parent, const ScriptKey& listed)
{
    if (listed.mode == ScriptMode::Delete) {
        return ERROR_SUCCESS;
    }
    HKEY opened = nullptr;
    const LSTATUS found = RegOpenKeyExW(parent, listed.name.c_str(), 0, KEY_READ | KEY_WRITE, &opened);
    if (found != ERROR_SUCCESS) {
        return UnlessAbsent(found);
    }
    const RegistryKey key(opened);
    LSTATUS first = UnregisterContent(opened, listed);
    if (listed.mode == ScriptMode::NoRemove) {
        return first;
    }
    if (listed.value) {
        KeepFirst(first, UnlessAbsent(RegDeleteValueW(opened, nullptr)));
    }
    DWORD subkeys = 0;
    KeepFirst(first, RegQueryInfoKeyW(opened, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr));
    if (first == ERROR_SUCCESS && subkeys == 0) {
        first = UnlessAbsent(RegDeleteKeyW(parent, listed.name.c_str()));
    }
    return first;
}

} // namespace

LSTATUS RegisterScript(const Script& script, HKEY classes)
{
    LSTATUS status = ERROR_SUCCESS;
    for (auto root = script.begin(); status == ERROR_SUCCESS && root != script.end(); ++root) {
        status = RegisterContent(Root(root->first, classes), root->second);
    }
    return status;
}

LSTATUS UnregisterScript(const Script& script, HKEY classes)
{
    LSTATUS first = ERROR_SUCCESS;
    for (auto root = script.rbegin(); root != script.rend(); ++root) {
        KeepFirst(first, UnregisterContent(Root(root->first, classes), root->second));
    }
    return first;
}

} // namespace orvel
