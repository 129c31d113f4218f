#include "tools/bench/allocation_counter.h"

#include <malloc.h>
#include <oleauto.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace orvel::bench {

namespace {

std::atomic<long> allocations;
std::atomic<long long> heldBytes;

void* Count(void* block)
{
    ++allocations;
    heldBytes += static_cast<long long>(_msize(block));
    return block;
}

void* __cdecl CountedMalloc(size_t size)
{
    return Count(std::malloc(size));
}

void* __cdecl CountedCalloc(size_t count, size_t size)
{
    return Count(std::calloc(count, size));
}

void __cdecl CountedFree(void* block)
{
    heldBytes -= block != nullptr ? static_cast<long long>(_msize(block)) : 0;
    std::free(block);
}

void* WINAPI CountedHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    ++allocations;
    return HeapAlloc(heap, flags, size);
}

BSTR WINAPI CountedSysAllocString(const OLECHAR* text)
{
    ++allocations;
    return SysAllocString(text);
}

BSTR WINAPI CountedSysAllocStringLen(const OLECHAR* text, UINT length)
{
    ++allocations;
    return SysAllocStringLen(text, length);
}

void* Exchange(void** slot, void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    void* previous = InterlockedExchangePointer(slot, function);
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
    return previous;
}

} // namespace

void** FindImport(HMODULE module, const char* name)
{
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); dll->Name != 0; ++dll) {
        const auto* names = reinterpret_cast<ULONG_PTR*>(base + dll->OriginalFirstThunk);
        auto* slots = reinterpret_cast<void**>(base + dll->FirstThunk);
        for (; *names != 0; ++names, ++slots) {
            const bool byName = (*names & IMAGE_ORDINAL_FLAG) == 0;
            if (byName && std::string(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + *names)->Name) == name) {
                return slots;
            }
        }
    }
    throw std::runtime_error(std::string("the module does not import ") + name);
}

AllocationCounter::AllocationCounter(HMODULE module)
{
    const auto patch = [&](const char* name, auto* function) {
        void** slot = FindImport(module, name);
        patches_.push_back({slot, Exchange(slot, reinterpret_cast<void*>(function))});
    };
    allocations = 0;
    heldBytes = 0;
    patch("malloc", &CountedMalloc);
    patch("calloc", &CountedCalloc);
    patch("free", &CountedFree);
    patch("HeapAlloc", &CountedHeapAlloc);
    patch("SysAllocString", &CountedSysAllocString);
    patch("SysAllocStringLen", &CountedSysAllocStringLen);
}

AllocationCounter::~AllocationCounter()
{
    for (const Patch& patch : patches_) {
        Exchange(patch.slot, patch.original);
    }
}

long AllocationCounter::Take()
{
    return allocations.exchange(0);
}

long long AllocationCounter::HeldBytes()
{
    return heldBytes;
}

} // namespace orvel::bench
