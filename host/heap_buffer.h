#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

namespace orvel {

struct HeapDeleter {
    void operator()(wchar_t* block) const noexcept { HeapFree(GetProcessHeap(), 0, block); }
};

/// Owner of a block of wide characters on the process heap.
using HeapBuffer = std::unique_ptr<wchar_t[], HeapDeleter>;

/// Allocates `count` characters, all zero. Null when there is no memory.
inline HeapBuffer AllocateHeapBuffer(size_t count) noexcept
{
    const bool isTooLong = count > SIZE_MAX / sizeof(wchar_t); // a size from the registry, with 32-bit addresses
    return HeapBuffer(
        isTooLong ? nullptr
                  : static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, count * sizeof(wchar_t))));
}

} // namespace orvel
