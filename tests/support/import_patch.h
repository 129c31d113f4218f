#pragma once

#include <windows.h>
#include <unknwn.h>

#include <algorithm>
#include <optional>
#include <utility>

/// An entry of a loaded module's import address table, or of a vtable, that another function stands in.
class ImportPatch {
public:
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    /// Returns the entry of an import. Throws std::runtime_error when the module does not import that name.
    static void** FindSlot(HMODULE module, const char* name);
    /// Returns the entry of an object's method, by its number in the vtable.
    static void** FindSlot(IUnknown* object, size_t method) { return *reinterpret_cast<void***>(object) + method; }
    /// Stores a function in an entry and returns the one that was there.
    static void* Exchange(void** slot, void* function);

protected:
    explicit ImportPatch(void** slot) : slot_(slot), replaced_(*slot) {}
    ~ImportPatch() { Exchange(slot_, replaced_); }

private:
    void** const slot_;
    void* const replaced_;
};

/// Has `body` called in place of a function, for the life of this object. The body takes the replaced function and then
/// the arguments of the call. Only one patch with the same body exists at a time.
template <typename Function>
class Patch;
template <typename Result, typename... Arguments>
class Patch<Result WINAPI(Arguments...)> : public ImportPatch {
public:
    /// Replaces a function that a module imports, by its name, or a method of all objects that share an object's
    /// vtable, by its number there.
    template <typename Body>
    Patch(const auto& object, auto function, Body body) : ImportPatch(FindSlot(object, function))
    {
        Install(object, function, std::move(body));
    }
    /// As the constructor; the function stays replaced.
    template <typename Body>
    static void Install(const auto& object, auto function, Body body)
    {
        void** const slot = FindSlot(object, function);
        Hook<Body>::body.emplace(std::move(body));
        Hook<Body>::replaced = reinterpret_cast<decltype(Hook<Body>::replaced)>(*slot);
        Exchange(slot, reinterpret_cast<void*>(&Hook<Body>::Call));
    }

private:
    template <typename Body>
    struct Hook {
        static inline std::optional<Body> body; // stays for calls that still run when the patch ends
        static inline Result(WINAPI* replaced)(Arguments...);
        static Result WINAPI Call(Arguments... arguments) { return (*body)(replaced, arguments...); }
    };
};

/// The name of an import as a template argument.
template <size_t size>
struct ImportName {
    consteval ImportName(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    char text[size]{};
};
