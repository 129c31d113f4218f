#pragma once

#include <windows.h>

namespace orvel {

/// A function that a loaded module exports, converted to what it initialises; null where there is none, or no module.
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
