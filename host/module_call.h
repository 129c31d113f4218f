#pragma once

namespace orvel {

/// One call into this module, from the host or from the Event Log, for as long as the object lives. Loader references
/// that were returned meanwhile are released after the last call has left the module. Any thread.
class ModuleCall {
public:
    ModuleCall() noexcept;
    ~ModuleCall();
    ModuleCall(const ModuleCall&) = delete;
    ModuleCall& operator=(const ModuleCall&) = delete;

    /// Adds a loader reference to this module, which keeps its code mapped even if the host frees it. Returns
    /// false, with the last error set, if the loader refuses.
    static bool AddLoaderReference() noexcept;

    /// Returns one reference. Called inside a ModuleCall. A thread of the process's pool releases the reference 100 ms
    /// after the last call has ended. If the pool has no memory, the module stays loaded.
    static void ReturnLoaderReference() noexcept;
};

} // namespace orvel
