#pragma once

#include <windows.h>
#include <unknwn.h>

#include <algorithm>
#include <optional>
#include <utility>

/// Returns the entry of an import in a loaded module's import address table. Throws std::runtime_error when the module
/// does not import that name.
void** FindSlot(HMODULE module, const char* name);

/// Returns the entry of an object's method, by its number in the vtable.
inline void** FindSlot(IUnknown* object, size_t method)
{
    return *reinterpret_cast<void***>(object) + method;
}

/// Stores a function in an entry, which may be read-only.
void SetSlot(void** slot, void* function);

/// Has `body` called in place of a function, for the life of this object. The body takes the replaced function and then
/// the arguments of the call. Only one patch with the same body exists at a time.
template <typename Function>
class Patch;
template <typename Result, typename... Arguments>
class Patch<Result WINAPI(Arguments...)> {
public:
    /// Replaces a function that a module imports, by its name, or a method of all objects that share an object's
    /// vtable, by its number there.
    template <typename Body>
    Patch(const auto& object, auto function, Body body) : slot_(FindSlot(object, function)), replaced_(*slot_)
    {
        Install(object, function, std::move(body));
    }
    ~Patch() { SetSlot(slot_, replaced_); }
    Patch(const Patch&) = delete;
    Patch& operator=(const Patch&) = delete;

    /// As the constructor; the function stays replaced.
    template <typename Body>
    static void Install(const auto& object, auto function, Body body)
    {
        void** const slot = FindSlot(object, function);
        Hook<Body>::body.emplace(std::move(body));
        Hook<Body>::replaced = reinterpret_cast<decltype(Hook<Body>::replaced)>(*slot);
        SetSlot(slot, reinterpret_cast<void*>(&Hook<Body>::Call));
    }

private:
    template <typename Body>
    struct Hook {
        static inline std::optional<Body> body; // stays for calls that still run when the patch ends
        static inline Result(WINAPI* replaced)(Arguments...);
        static Result WINAPI Call(Arguments... arguments) { return (*body)(replaced, arguments...); }
    };

    void** const slot_;
    void* const replaced_;
};

/// The name of an import as a template argument.
template <size_t size>
struct ImportName {
    consteval ImportName(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    char text[size]{};
};
