#pragma once

#include <windows.h>

#include <cstdint>

namespace orvel {

/// A number per thread, initially 0. Uses a TLS slot, because GCC's `thread_local` ends the process when it cannot
/// allocate memory.
class ThreadSlot {
public:
    ThreadSlot() noexcept : slot_(TlsAlloc()) {}
    ~ThreadSlot() { TlsFree(slot_); }
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    intptr_t Get() const noexcept { return reinterpret_cast<intptr_t>(TlsGetValue(slot_)); }
    /// Returns false when there is no memory, or when the process had no slot left.
    bool Set(intptr_t number) const noexcept { return TlsSetValue(slot_, reinterpret_cast<void*>(number)) != FALSE; }

private:
    const DWORD slot_;
};

} // namespace orvel
