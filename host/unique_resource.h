#pragma once

#include <windows.h>
#include <oleauto.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace orvel {

inline void FreeHeapBlock(void* block) noexcept
{
    HeapFree(GetProcessHeap(), 0, block);
}

/// Deleter for `std::unique_ptr` that releases a resource with a function of the platform.
template <auto kRelease>
struct ReleaseWith {
    template <typename Resource>
    void operator()(Resource* resource) const noexcept
    {
        kRelease(resource);
    }
};

/// Unlike the SDK's `_bstr_t`, which shares its string, it needs no second allocation.
using UniqueBstr = std::unique_ptr<OLECHAR, ReleaseWith<SysFreeString>>;
using UniqueKey = std::unique_ptr<std::remove_pointer_t<HKEY>, ReleaseWith<RegCloseKey>>;
/// Null when no file is open, never INVALID_HANDLE_VALUE.
using UniqueFile = std::unique_ptr<void, ReleaseWith<CloseHandle>>;
/// Text that the platform allocated with LocalAlloc.
using UniqueLocalText = std::unique_ptr<wchar_t, ReleaseWith<LocalFree>>;
/// Text on the process heap.
using UniqueHeapText = std::unique_ptr<wchar_t[], ReleaseWith<FreeHeapBlock>>;
/// Block allocated with malloc or calloc.
template <typename T>
using UniqueMalloc = std::unique_ptr<T, ReleaseWith<std::free>>;

/// Allocates `count` characters on the process heap, all zero. Returns null when out of memory.
inline UniqueHeapText AllocateHeapText(size_t count) noexcept
{
    if (count > SIZE_MAX / sizeof(wchar_t)) {
        return nullptr;
    }
    return UniqueHeapText(
        static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, count * sizeof(wchar_t))));
}

} // namespace orvel
