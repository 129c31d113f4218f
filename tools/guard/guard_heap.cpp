// The heap of the guarded module. Every block is followed by an inaccessible page; the pages of a freed block become
// inaccessible and are never reused. An overrun or a use after free therefore faults at the instruction that causes it.
// The linker's --wrap options redirect the module's use of the C runtime's heap, the process heap and BSTRs to this
// heap. Blocks that were allocated elsewhere are freed by the original functions.

#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>
#include <vector>

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kArenaSize = size_t{1} << 37; // addresses, not memory
constexpr size_t kHeader = sizeof(size_t);     // the block's size, at the start of its first page
constexpr std::byte kFresh{0xCD};              // fills memory that has not been written yet

constinit std::atomic<std::byte*> arena = nullptr;
constinit std::atomic<size_t> used = 0;

bool IsGuarded(const void* block)
{
    const auto* const base = arena.load();
    return base != nullptr && block >= base && block < base + kArenaSize;
}

void* Allocate(size_t size)
{
    if (arena == nullptr) { // the thread that loses the race releases its own reservation
        auto* const mine = static_cast<std::byte*>(VirtualAlloc(nullptr, kArenaSize, MEM_RESERVE, PAGE_NOACCESS));
        std::byte* none = nullptr;
        if (!arena.compare_exchange_strong(none, mine)) {
            VirtualFree(mine, 0, MEM_RELEASE);
        }
    }
    if (size > kArenaSize / 4) {
        return nullptr;
    }
    const size_t extent = (size + kHeader + kPage - 1) / kPage * kPage;
    const size_t start = used.fetch_add(extent + kPage);
    if (start + extent > kArenaSize || VirtualAlloc(arena + start, extent, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        return nullptr;
    }
    std::fill_n(arena + start, extent, kFresh);
    std::memcpy(arena + start, &size, kHeader);
    return arena + start + extent - size; // a type's size is a multiple of its alignment, so this is aligned
}

std::byte* PagesOf(const void* block, size_t& size)
{
    std::byte* const pages = arena + (static_cast<const std::byte*>(block) - kHeader - arena) / kPage * kPage;
    std::memcpy(&size, pages, kHeader);
    return pages;
}

void Free(void* block)
{
    size_t size = 0;
    std::byte* const pages = PagesOf(block, size);
    if (std::any_of(pages + kHeader, static_cast<std::byte*>(block), [](std::byte b) { return b != kFresh; })) {
        std::abort(); // the bytes before the block were overwritten
    }
    VirtualFree(pages, static_cast<size_t>(static_cast<std::byte*>(block) - pages) + size, MEM_DECOMMIT);
}

} // namespace

extern "C" {

void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
extern decltype(&HeapFree) __real___imp_HeapFree;
extern decltype(&SysFreeString) __real___imp_SysFreeString;
extern decltype(&VariantClear) __real___imp_VariantClear;

void* __wrap_malloc(size_t size)
{
    return Allocate(size);
}

void* __wrap_calloc(size_t count, size_t size)
{
    void* const block = size != 0 && count > SIZE_MAX / size ? nullptr : Allocate(count * size);
    return block != nullptr ? std::memset(block, 0, count * size) : nullptr;
}

void __wrap_free(void* block)
{
    IsGuarded(block) ? Free(block) : __real_free(block);
}

void* __wrap_realloc(void* block, size_t size)
{
    if (block != nullptr && !IsGuarded(block)) {
        return __real_realloc(block, size);
    }
    void* const moved = Allocate(size);
    if (moved != nullptr && block != nullptr) {
        size_t oldSize = 0;
        PagesOf(block, oldSize);
        std::memcpy(moved, block, std::min(oldSize, size));
        Free(block);
    }
    return moved;
}

static LPVOID WINAPI GuardedHeapAlloc(HANDLE, DWORD flags, SIZE_T size)
{
    return (flags & HEAP_ZERO_MEMORY) != 0 ? __wrap_calloc(1, size) : Allocate(size);
}

static BOOL WINAPI GuardedHeapFree(HANDLE heap, DWORD flags, LPVOID block)
{
    if (!IsGuarded(block)) {
        return __real___imp_HeapFree(heap, flags, block);
    }
    Free(block);
    return TRUE;
}

static BSTR WINAPI GuardedAllocStringLen(const OLECHAR* text, UINT length)
{
    const auto bytes = static_cast<DWORD>(length * sizeof(wchar_t));
    auto* const block = static_cast<std::byte*>(Allocate(sizeof(bytes) + bytes + sizeof(wchar_t)));
    if (block == nullptr) {
        return nullptr;
    }
    std::memcpy(block, &bytes, sizeof(bytes));
    std::memcpy(block + sizeof(bytes), text, bytes);
    std::memset(block + sizeof(bytes) + bytes, 0, sizeof(wchar_t));
    return reinterpret_cast<BSTR>(block + sizeof(bytes));
}

static BSTR WINAPI GuardedAllocString(const OLECHAR* text)
{
    return text != nullptr ? GuardedAllocStringLen(text, static_cast<UINT>(std::wcslen(text))) : nullptr;
}

static void WINAPI GuardedFreeString(BSTR text)
{
    IsGuarded(text) ? Free(reinterpret_cast<std::byte*>(text) - sizeof(DWORD)) : __real___imp_SysFreeString(text);
}

static HRESULT WINAPI GuardedVariantClear(VARIANTARG* value)
{
    if (value->vt != VT_BSTR || !IsGuarded(value->bstrVal)) {
        return __real___imp_VariantClear(value);
    }
    GuardedFreeString(value->bstrVal);
    value->vt = VT_EMPTY;
    return S_OK;
}

decltype(&HeapAlloc) __wrap___imp_HeapAlloc = &GuardedHeapAlloc;
decltype(&HeapFree) __wrap___imp_HeapFree = &GuardedHeapFree;
decltype(&SysAllocString) __wrap___imp_SysAllocString = &GuardedAllocString;
decltype(&SysAllocStringLen) __wrap___imp_SysAllocStringLen = &GuardedAllocStringLen;
decltype(&SysFreeString) __wrap___imp_SysFreeString = &GuardedFreeString;
decltype(&VariantClear) __wrap___imp_VariantClear = &GuardedVariantClear;

/// Commits the error `fault`, for tests that the guarded module detects it. Returns 0 if the error goes undetected.
__declspec(dllexport) int WINAPI GuardProbe(int fault)
{
    const volatile size_t three = 3;
    switch (fault) {
    case 0: { // reads past the end of a string
        const auto text = std::make_unique<volatile wchar_t[]>(three);
        return text[three] == 1;
    }
    case 1: { // uses a freed block
        auto* const text = new volatile wchar_t[three];
        delete[] text;
        return text[0] == 1; // NOLINT: on purpose
    }
    case 2: { // writes past the end of a block of the process heap
        auto* const text = static_cast<volatile char*>(HeapAlloc(GetProcessHeap(), 0, three));
        text[three] = 1;
        return HeapFree(GetProcessHeap(), 0, const_cast<char*>(text)) == 2;
    }
    case 3: { // uses a freed BSTR
        auto* const text = SysAllocString(L"abc");
        SysFreeString(text);
        return static_cast<const volatile wchar_t*>(text)[0] == 1;
    }
    case 4: { // writes before the start of a block
        auto* const text = new volatile char[three];
        text[-1] = 1;
        delete[] text;
        return 0;
    }
    case 5: // indexes a vector out of range
        return std::vector<int>(three)[three];
    case 6: { // overflows a signed integer
        volatile int number = std::numeric_limits<int>::max();
        number = number + 1;
        return 0;
    }
    }
    return 0;
}

} // extern "C"
