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
    /// Bytes of the runtime's heap allocated and not yet freed since the start.
    static long long HeldBytes();

private:
    const ImportPatch malloc_;
    const ImportPatch calloc_;
    const ImportPatch free_;
    const ImportPatch heapAlloc_;
    const ImportPatch sysAllocString_;
    const ImportPatch sysAllocStringLen_;
};

} // namespace orvel::bench
