#pragma once

#include "tools/bench/import_patch.h"

namespace orvel::bench {

/// Counts what a module allocates, by whatever function, for as long as this object lives. One at a time; allocations
/// of all threads are counted.
class AllocationCounter {
public:
    explicit AllocationCounter(HMODULE module);

    /// Blocks and BSTRs allocated since the last call, or since the start.
    static long Take();
    /// What was allocated and not yet freed since the start: on the runtime's heap, and BSTRs.
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

} // namespace orvel::bench
