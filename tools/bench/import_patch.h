#pragma once

#include <windows.h>

/// Makes a loaded module call another function in place of one that it imports, for the life of this object.
class ImportPatch {
public:
    /// Throws std::runtime_error when the module does not import that name.
    template <typename Function>
    ImportPatch(HMODULE module, const char* name, Function* replacement)
        : slot_(FindSlot(module, name)), original_(Exchange(slot_, reinterpret_cast<void*>(replacement)))
    {
    }
    ~ImportPatch() { Exchange(slot_, original_); }
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    /// The import's place in a loaded module. Throws std::runtime_error when it does not import the name.
    static void** FindSlot(HMODULE module, const char* name);
    /// Puts a function there and gives the one that it replaces.
    static void* Exchange(void** slot, void* function);

private:
    void** slot_;
    void* original_;
};
