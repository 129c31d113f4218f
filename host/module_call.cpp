#include "host/module_call.h"

#include "host/module_static.h"

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace orvel {

namespace {

// The low 32 bits count the calls in progress, the high 32 bits the returned references. They share one atomic variable
// so that references are only released while no call is in progress.
constinit std::atomic<uint64_t> state = 0;
constexpr uint64_t kOneReference = uint64_t{1} << 32;

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
    // Threads that have just left their ModuleCall still execute a few instructions of this module.
    constexpr LONGLONG kDelay = -1'000'000; // 100 ms; negative means relative, in units of 100 ns
    if (PTP_TIMER timer = CreateThreadpoolTimer(&ReleaseReference, nullptr, nullptr)) {
        FILETIME due{static_cast<DWORD>(kDelay), static_cast<DWORD>(kDelay >> 32)};
        SetThreadpoolTimer(timer, &due, 0, 0);
    }
}

} // namespace

ModuleCall::ModuleCall() noexcept
{
    ++state;
}

ModuleCall::~ModuleCall()
{
    uint64_t left = --state;
    const bool isLast = left % kOneReference == 0;
    if (isLast && left != 0 && !isProcessEnding && state.compare_exchange_strong(left, 0)) {
        for (uint64_t references = left / kOneReference; references > 0; --references) {
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
    state += kOneReference;
}

} // namespace orvel
