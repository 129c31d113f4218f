#include "module/registration.h"

#include "host/com_failure.h"
#include "host/native_lock.h"
#include "host/owned_handles.h"
#include "module/module.h"
#include "module/provider_ids.h"
#include "module/registrar.h"

#include <windows.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <cstring>
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

HRESULT FromStatus(LSTATUS status)
{
    return HresultFromWin32(static_cast<DWORD>(status));
}

// Without this call the platform registers a type library machine-wide, whatever HKCR is redirected to. Old systems do
// not have it, nor need it.
void AllowTypeLibraryPerUser()
{
    if (const HMODULE automation = GetModuleHandleW(L"oleaut32.dll")) {
        const FARPROC found = GetProcAddress(automation, "OaEnablePerUserTLibRegistration");
        void(WINAPI * enable)() = nullptr;
        static_assert(sizeof(enable) == sizeof(found));
        std::memcpy(&enable, &found, sizeof(enable));
        if (enable != nullptr) {
            enable();
        }
    }
}

HRESULT OpenClasses(RegistryKey& classes)
{
    HKEY key = nullptr;
    const LSTATUS status = RegCreateKeyExW(
        CEventLogProviderModule::Instance().IsPerUser() ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, L"Software\\Classes",
        0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    classes.reset(key);
    return FromStatus(status);
}

std::wstring ScriptText(HMODULE module, WORD resource)
{
    HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(resource), L"REGISTRY");
    HGLOBAL loaded = found != nullptr ? LoadResource(module, found) : nullptr;
    if (loaded == nullptr) {
        return {};
    }
    const auto* bytes = static_cast<const char*>(LockResource(loaded));
    const auto size = static_cast<int>(SizeofResource(module, found));
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, bytes, size, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes, size, text.data(), static_cast<int>(text.size()));
    return text;
}

// Parses the whole script before anything is changed.
HRESULT RunScript(WORD resource, HKEY classes, LSTATUS (*run)(const Script&, HKEY))
{
    const auto& module = CEventLogProviderModule::Instance();
    try {
        const Script script =
            ParseScript(ScriptText(module.Handle(), resource), {{L"MODULE", module.Path()}, {L"APPID", kAppId}});
        return FromStatus(run(script, classes));
    } catch (const ScriptError& error) {
        const std::wstring line = L"Orvel_eventlog.dll: script " + std::to_wstring(resource) + L", line " +
                                  std::to_wstring(error.line) + L", column " + std::to_wstring(error.column) + L": " +
                                  error.reason + L"\n";
        OutputDebugStringW(line.c_str());
        return DISP_E_EXCEPTION;
    }
}

HRESULT RegisterTypeLibrary(HKEY classes)
{
    std::wstring path = CEventLogProviderModule::Instance().Path();
    ComPtr<ITypeLib> library;
    HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.GetAddressOf());
    if (FAILED(hr)) {
        return hr;
    }
    const ClassesRedirection redirection(classes);
    hr = FromStatus(redirection.status);
    if (SUCCEEDED(hr)) {
        std::wstring folder = path.substr(0, path.rfind(L'\\'));
        hr = RegisterTypeLib(library.Get(), path.data(), folder.data());
    }
    return hr;
}

HRESULT UnregisterTypeLibrary(HKEY classes)
{
    // Removing what is not registered fails, and with a code that a refused access gives too: so look first.
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(classes, kLibraryKey, 0, KEY_READ, &opened);
    RegistryKey(opened).reset();
    if (status != ERROR_SUCCESS) {
        return status == ERROR_FILE_NOT_FOUND ? S_OK : FromStatus(status);
    }
    const ClassesRedirection redirection(classes);
    const HRESULT hr = FromStatus(redirection.status);
    return SUCCEEDED(hr) ? UnRegisterTypeLib(kProviderLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, kSystem)
                         : hr;
}

// Runs `steps` on the classes of the chosen scope.
template <typename Steps>
HRESULT OnClasses(Steps&& steps) noexcept
{
    try {
        const std::lock_guard guard(registrationLock);
        if (CEventLogProviderModule::Instance().IsPerUser()) {
            AllowTypeLibraryPerUser();
        }
        RegistryKey classes;
        const HRESULT hr = OpenClasses(classes);
        return SUCCEEDED(hr) ? steps(classes.get()) : hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace

HRESULT RegisterModule() noexcept
{
    const SystemThreadLocale locale;
    return OnClasses([](HKEY classes) {
        if (CEventLogProviderModule::Instance().Path().empty()) {
            return FromStatus(static_cast<LSTATUS>(GetLastError()));
        }
        HRESULT hr = RunScript(kModuleScript, classes, RegisterScript);
        if (SUCCEEDED(hr)) {
            hr = RunScript(kClassScript, classes, RegisterScript);
        }
        return SUCCEEDED(hr) ? RegisterTypeLibrary(classes) : hr;
    });
}

HRESULT UnregisterModule() noexcept
{
    return OnClasses([](HKEY classes) {
        HRESULT first = UnregisterTypeLibrary(classes);
        for (const WORD script : {kClassScript, kModuleScript}) {
            const HRESULT hr = RunScript(script, classes, UnregisterScript);
            first = FAILED(first) ? first : hr;
        }
        return first;
    });
}

} // namespace orvel
