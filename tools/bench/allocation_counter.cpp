#include "tools/bench/allocation_counter.h"

#include <malloc.h>
#include <oleauto.h>

#include <atomic>
#include <cstdlib>

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

} // namespace

AllocationCounter::AllocationCounter(HMODULE module)
    : malloc_(module, "malloc", &CountedMalloc), calloc_(module, "calloc", &CountedCalloc),
      free_(module, "free", &CountedFree), heapAlloc_(module, "HeapAlloc", &CountedHeapAlloc),
      sysAllocString_(module, "SysAllocString", &CountedSysAllocString),
      sysAllocStringLen_(module, "SysAllocStringLen", &CountedSysAllocStringLen)
{
    allocations = 0;
    heldBytes = 0;
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
