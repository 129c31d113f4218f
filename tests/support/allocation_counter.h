#pragma once

#include "tests/support/import_patch.h"

/// Counts the allocations that a module makes through its imports, on all threads, for the life of this object. Only
/// one object may exist at a time.
class AllocationCounter {
public:
    explicit AllocationCounter(HMODULE module);

    /// Returns how many blocks and BSTRs were allocated since the last call, or since the start.
    static long Take();
    /// Return what was allocated since the start and is not freed: blocks and bytes of the C runtime's heap, and BSTRs.
    static long long HeldBlocks();
    static long long HeldBytes();
    static long long HeldTexts();

private:
    const ImportPatch malloc_;
    const ImportPatch calloc_;
    const ImportPatch free_;
    const ImportPatch heapAlloc_;
    const ImportPatch sysAllocString_;
    const ImportPatch sysAllocStringLen_;
    const ImportPatch sysFreeString_;
    const ImportPatch variantClear_;
};
