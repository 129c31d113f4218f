#include "module/registration.h"

#include "host/com_failure.h"
#include "host/native_lock.h"
#include "host/unique_resource.h"
#include "module/module.h"
#include "module/provider_ids.h"
#include "module/registrar.h"

#include <windows.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <mutex>
#include <new>

namespace orvel {

using Microsoft::WRL::ComPtr;

namespace {

constexpr WORD kModuleScript = 101;
constexpr WORD kClassScript = 102;
constexpr wchar_t kAppId[] = L"{44D2B20B-C31C-43B7-A2E6-B5FA579BFDF2}";
constexpr SYSKIND kSystem = sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
constexpr const wchar_t* kLibraryKey = sizeof(void*) == 8
                                           ? L"TypeLib\\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\\1.0\\0\\win64"
                                           : L"TypeLib\\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\\1.0\\0\\win32";

// HKCR is redirected for the whole process: one registration at a time.
NativeLock registrationLock;

// Makes registration independent of the calling thread's locale.
class SystemThreadLocale {
public:
    SystemThreadLocale() noexcept { SetThreadLocale(LOCALE_SYSTEM_DEFAULT); }
    ~SystemThreadLocale() { SetThreadLocale(previous_); }
    SystemThreadLocale(const SystemThreadLocale&) = delete;
    SystemThreadLocale& operator=(const SystemThreadLocale&) = delete;

private:
    LCID previous_ = GetThreadLocale();
};

class ClassesRedirection {
public:
    explicit ClassesRedirection(HKEY classes) noexcept : status(RegOverridePredefKey(HKEY_CLASSES_ROOT, classes)) {}
    ~ClassesRedirection() { RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr); }
    ClassesRedirection(const ClassesRedirection&) = delete;
    ClassesRedirection& operator=(const ClassesRedirection&) = delete;

    const LSTATUS status;
};

// Without this call the platform registers type libraries machine-wide, whatever HKCR is redirected to. Windows
// versions that lack it do not need it.
void AllowTypeLibraryPerUser()
{
    const HMODULE automation = GetModuleHandleW(L"oleaut32.dll");
    const FARPROC found =
        automation != nullptr ? GetProcAddress(automation, "OaEnablePerUserTLibRegistration") : nullptr;
    if (found != nullptr) {
        reinterpret_cast<void(WINAPI*)()>(reinterpret_cast<void*>(found))();
    }
}

std::wstring ScriptText(HMODULE module, WORD resource)
{
    const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(resource), L"REGISTRY");
    const HGLOBAL loaded = found != nullptr ? LoadResource(module, found) : nullptr;
    if (loaded == nullptr) {
        return {};
    }
    const auto* text = static_cast<const char*>(LockResource(loaded));
    return {text, text + SizeofResource(module, found)}; // ASCII
}

// Parses the whole script before anything is changed.
HRESULT RunScript(WORD resource, LSTATUS (*run)(const ScriptKey&, HKEY))
{
    const auto& module = CEventLogProviderModule::Instance();
    try {
        const ScriptKey script =
            ParseScript(ScriptText(module.Handle(), resource), {{L"%MODULE%", module.Path()}, {L"%APPID%", kAppId}});
        return HresultFromWin32(run(script, HKEY_CLASSES_ROOT));
    } catch (const ScriptError& error) {
        const std::wstring line = L"Orvel_eventlog.dll: script " + std::to_wstring(resource) + L", line " +
                                  std::to_wstring(error.line) + L", column " + std::to_wstring(error.column) + L": " +
                                  error.reason + L"\n";
        OutputDebugStringW(line.c_str());
        return DISP_E_EXCEPTION;
    }
}

HRESULT RegisterTypeLibrary()
{
    std::wstring path = CEventLogProviderModule::Instance().Path();
    ComPtr<ITypeLib> library;
    const HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.GetAddressOf());
    if (FAILED(hr)) {
        return hr;
    }
    std::wstring folder = path.substr(0, path.rfind(L'\\'));
    return RegisterTypeLib(library.Get(), path.data(), folder.data());
}

HRESULT UnregisterTypeLibrary()
{
    // UnRegisterTypeLib returns the same code for a library that is not registered and for one that it may not remove.
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(HKEY_CLASSES_ROOT, kLibraryKey, 0, KEY_READ, &opened);
    UniqueKey(opened).reset(); // UnRegisterTypeLib deletes the key
    if (status != ERROR_SUCCESS) {
        return status == ERROR_FILE_NOT_FOUND ? S_OK : HresultFromWin32(status);
    }
    return UnRegisterTypeLib(kProviderLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, kSystem);
}

// Runs `steps` with HKCR redirected to the classes of the machine or the user.
HRESULT OnClasses(HRESULT (*steps)())
{
    try {
        const std::lock_guard guard(registrationLock);
        const bool isPerUser = CEventLogProviderModule::Instance().IsPerUser();
        if (isPerUser) {
            AllowTypeLibraryPerUser();
        }
        HKEY opened = nullptr;
        const LSTATUS status =
            RegCreateKeyExW(isPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, L"Software\\Classes", 0, nullptr,
                            REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr, &opened, nullptr);
        if (status != ERROR_SUCCESS) {
            return HresultFromWin32(status);
        }
        const UniqueKey classes(opened);
        const ClassesRedirection redirection(classes.get());
        return redirection.status == ERROR_SUCCESS ? steps() : HresultFromWin32(redirection.status);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Register()
{
    const std::wstring path = CEventLogProviderModule::Instance().Path(); // freed after the last error is read
    if (path.empty()) {
        return HresultFromWin32(GetLastError());
    }
    for (const WORD script : {kModuleScript, kClassScript}) {
        const HRESULT hr = RunScript(script, RegisterContents);
        if (FAILED(hr)) {
            return hr;
        }
    }
    return RegisterTypeLibrary();
}

HRESULT Unregister()
{
    HRESULT first = UnregisterTypeLibrary();
    for (const WORD script : {kClassScript, kModuleScript}) {
        const HRESULT hr = RunScript(script, UnregisterContents);
        if (SUCCEEDED(first)) {
            first = hr;
        }
    }
    return first;
}

} // namespace

HRESULT RegisterModule()
{
    const SystemThreadLocale locale;
    return OnClasses(Register);
}

HRESULT UnregisterModule()
{
    return OnClasses(Unregister);
}

} // namespace orvel
