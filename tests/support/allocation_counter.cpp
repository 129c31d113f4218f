#include "tests/support/allocation_counter.h"

#include <malloc.h>
#include <oleauto.h>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<long> allocations;
std::atomic<long long> heldBlocks;
std::atomic<long long> heldBytes;
std::atomic<long long> heldTexts;

void* Count(void* block)
{
    ++allocations;
    ++heldBlocks;
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
    if (block != nullptr) {
        --heldBlocks;
        heldBytes -= static_cast<long long>(_msize(block));
    }
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
    ++heldTexts;
    return SysAllocString(text);
}

BSTR WINAPI CountedSysAllocStringLen(const OLECHAR* text, UINT length)
{
    ++allocations;
    ++heldTexts;
    return SysAllocStringLen(text, length);
}

void WINAPI CountedSysFreeString(BSTR text)
{
    heldTexts -= text != nullptr ? 1 : 0;
    SysFreeString(text);
}

HRESULT WINAPI CountedVariantClear(VARIANTARG* value)
{
    heldTexts -= value->vt == VT_BSTR && value->bstrVal != nullptr ? 1 : 0;
    return VariantClear(value);
}

} // namespace

AllocationCounter::AllocationCounter(HMODULE module)
    : malloc_(module, "malloc", &CountedMalloc), calloc_(module, "calloc", &CountedCalloc),
      free_(module, "free", &CountedFree), heapAlloc_(module, "HeapAlloc", &CountedHeapAlloc),
      sysAllocString_(module, "SysAllocString", &CountedSysAllocString),
      sysAllocStringLen_(module, "SysAllocStringLen", &CountedSysAllocStringLen),
      sysFreeString_(module, "SysFreeString", &CountedSysFreeString),
      variantClear_(module, "VariantClear", &CountedVariantClear)
{
    allocations = 0;
    heldBlocks = 0;
    heldBytes = 0;
    heldTexts = 0;
}

long AllocationCounter::Take()
{
    return allocations.exchange(0);
}

long long AllocationCounter::HeldBlocks()
{
    return heldBlocks;
}

long long AllocationCounter::HeldBytes()
{
    return heldBytes;
}

long long AllocationCounter::HeldTexts()
{
    return heldTexts;
}
