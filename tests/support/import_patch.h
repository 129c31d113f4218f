#pragma once

#include <windows.h>

#include <algorithm>

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

    /// Returns the import's address table entry. Throws std::runtime_error when the module does not import that name.
    static void** FindSlot(HMODULE module, const char* name);
    /// Stores a function in an entry and returns the one that was there.
    static void* Exchange(void** slot, void* function);

private:
    void** slot_;
    void* original_;
};

/// The name of an import as a template argument.
template <size_t size>
struct ImportName {
    consteval ImportName(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    char text[size]{};
};
