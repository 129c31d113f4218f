#pragma once

#include <windows.h>
#include <oleauto.h>

#include <cstdlib>
#include <memory>
#include <type_traits>

namespace orvel {

/// Deleter for `std::unique_ptr` that releases a resource with a function of the platform.
template <auto kRelease>
struct ReleaseWith {
    template <typename Resource>
    void operator()(Resource* resource) const noexcept
    {
        kRelease(resource);
    }
};

inline void FreeHeapBlock(void* block) noexcept
{
    HeapFree(GetProcessHeap(), 0, block);
}

/// Not the SDK's shared `_bstr_t`, which needs a second allocation for every string.
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

} // namespace orvel
