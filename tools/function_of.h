#pragma once

#include <windows.h>

namespace orvel {

/// An exported function of a loaded module, converted to the function pointer that it initialises. Null if `module` is
/// null or lacks the export.
struct FunctionOf {
    HMODULE module;
    const char* name;

    template <typename Function>
    operator Function*() const
    {
        return module == nullptr ? nullptr
                                 : reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }
};

} // namespace orvel
