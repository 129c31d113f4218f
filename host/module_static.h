#pragma once

namespace orvel {

/// Set by DllMain when the process ends.
inline bool isProcessEnding = false;

/// A static object that is destroyed when the module is unloaded, but not when the process ends: a host DLL that is
/// detached after this module may still release its provider.
template <typename T>
class ModuleStatic {
public:
    ModuleStatic() : object_() {}
    ~ModuleStatic()
    {
        if (!isProcessEnding) {
            object_.~T();
        }
    }
    ModuleStatic(const ModuleStatic&) = delete;
    ModuleStatic& operator=(const ModuleStatic&) = delete;

    T* operator->() noexcept { return &object_; }

private:
    union {
        T object_; // in a union, so that only ~ModuleStatic destroys it
    };
};

} // namespace orvel
