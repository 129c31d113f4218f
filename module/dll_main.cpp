// The module's entry points; each only forwards.

#include "host/module_static.h"
#include "module/class_factory.h"
#include "module/module.h"
#include "module/provider_ids.h"
#include "module/registration.h"

#include <windows.h>

#include <cwchar>
#include <exception>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void* reserved)
{
    if (reason == DLL_PROCESS_ATTACH) {
        // Allocates libgcc's per-thread exception state: if that allocation failed during a throw, the process would
        // abort.
        static_cast<void>(std::current_exception());
        orvel::CEventLogProviderModule::Instance().SetHandle(instance);
    } else if (reason == DLL_PROCESS_DETACH) {
        orvel::isProcessEnding = reserved != nullptr;
    }
    return TRUE;
}

STDAPI DllCanUnloadNow()
{
    return orvel::CEventLogProviderModule::Instance().IsLocked() ? S_FALSE : S_OK;
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, void** out)
{
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = nullptr;
    if (orvel::CEventLogProviderModule::Instance().Handle() == nullptr) {
        return E_UNEXPECTED;
    }
    return IsEqualCLSID(classId, orvel::kProviderClass) ? orvel::ClassFactory::Create(iid, out)
                                                        : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllRegisterServer()
{
    return orvel::RegisterModule();
}

STDAPI DllUnregisterServer()
{
    return orvel::UnregisterModule();
}

STDAPI DllInstall(BOOL install, PCWSTR commandLine)
{
    if (commandLine != nullptr && _wcsicmp(commandLine, L"user") == 0) {
        orvel::CEventLogProviderModule::Instance().ChoosePerUser();
    }
    if (!install) {
        return orvel::UnregisterModule();
    }
    const HRESULT hr = orvel::RegisterModule();
    if (FAILED(hr)) {
        orvel::UnregisterModule();
    }
    return hr;
}
