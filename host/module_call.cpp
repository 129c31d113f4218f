#include "host/module_call.h"

#include "host/module_static.h"

#include <windows.h>

#include <atomic>

namespace orvel {

namespace {

constinit std::atomic<long> callsInside = 0;
constinit std::atomic<long> returnedReferences = 0;

HMODULE FindThisModule(DWORD flags) noexcept
{
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags,
                       reinterpret_cast<const wchar_t*>(&FindThisModule), &module);
    return module;
}

void CALLBACK ReleaseReference(PTP_CALLBACK_INSTANCE instance, void* /*context*/, PTP_TIMER timer)
{
    FreeLibraryWhenCallbackReturns(instance, FindThisModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT));
    CloseThreadpoolTimer(timer);
}

void ReleaseReferenceSoon() noexcept
{
    // Threads that have just left their ModuleCall still have a few instructions of this module to run.
    constexpr LONGLONG kDelay = -1'000'000; // 100 ms; negative means from now, in units of 100 ns
    if (PTP_TIMER timer = CreateThreadpoolTimer(&ReleaseReference, nullptr, nullptr)) {
        FILETIME due{static_cast<DWORD>(kDelay), static_cast<DWORD>(kDelay >> 32)};
        SetThreadpoolTimer(timer, &due, 0, 0);
    }
}

} // namespace

ModuleCall::ModuleCall() noexcept
{
    ++callsInside;
}

ModuleCall::~ModuleCall()
{
    if (--callsInside == 0 && !isProcessEnding) {
        for (long returned = returnedReferences.exchange(0); returned > 0; --returned) {
            ReleaseReferenceSoon();
        }
    }
}

bool ModuleCall::AddLoaderReference() noexcept
{
    return FindThisModule(0) != nullptr;
}

void ModuleCall::ReturnLoaderReference() noexcept
{
    ++returnedReferences;
}

} // namespace orvel
