// The module's entry points; each only forwards.

#include "module/class_factory.h"
#include "module/module.h"

#include <windows.h>

namespace {

// {DAF69464-F4E2-40C0-BCC3-A30E819975F0}
constexpr CLSID kProviderClass = {0xDAF69464, 0xF4E2, 0x40C0, {0xBC, 0xC3, 0xA3, 0x0E, 0x81, 0x99, 0x75, 0xF0}};

} // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) {
        orvel::CEventLogProviderModule::Instance().SetHandle(instance);
    } else if (reason == DLL_PROCESS_DETACH) {
        orvel::CEventLogProviderModule::Instance().SetHandle(nullptr);
    }
    return TRUE;
}

STDAPI DllCanUnloadNow()
{
    return orvel::CEventLogProviderModule::Instance().CanUnload() ? S_OK : S_FALSE;
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
    return IsEqualCLSID(classId, kProviderClass) ? orvel::ClassFactory::Create(iid, out) : CLASS_E_CLASSNOTAVAILABLE;
}
