#pragma once

#include <windows.h>

#include <vector>

namespace orvel::bench {

/// The place in a loaded module's import table through which it calls `name`. Throws std::runtime_error when the module
/// does not import that function by name.
void** FindImport(HMODULE module, const char* name);

/// Counts what a module allocates, by whatever function, for as long as this object lives. One at a time; allocations
/// of all threads are counted.
class AllocationCounter {
public:
    explicit AllocationCounter(HMODULE module);
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    /// Blocks and BSTRs allocated since the last call, or since the start.
    static long Take();
    /// Bytes of the runtime's heap allocated and not yet freed since the start.
    static long long HeldBytes();

private:
    struct Patch {
        void** slot;
        void* original;
    };
    std::vector<Patch> patches_;
};

} // namespace orvel::bench
