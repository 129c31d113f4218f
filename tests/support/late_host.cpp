// A host's DLL that is detached after the module when the process ends, and only then releases its provider. The exit
// code is then 42 if that closed the provider's subscription.

#include "tools/replay/replay_control.h"

#include <unknwn.h>

namespace {

IUnknown* heldProvider = nullptr;
decltype(&ReplayOpenHandles) countOpenHandles = nullptr;

} // namespace

extern "C" __declspec(dllexport) void HoldProvider(IUnknown* provider, decltype(&ReplayOpenHandles) openHandles)
{
    heldProvider = provider;
    countOpenHandles = openHandles;
}

BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, void* reserved)
{
    if (reason == DLL_PROCESS_DETACH && reserved != nullptr) {
        // A slot that the module had freed at its own end would be used by somebody else now.
        TlsSetValue(TlsAlloc(), &heldProvider);
        heldProvider->Release();
        TerminateProcess(GetCurrentProcess(), countOpenHandles(ReplaySubscriptionHandle) == 0 ? 42 : 43);
    }
    return TRUE;
}
