#pragma once

#include <windows.h>

namespace orvel {

/// A plain, non-recursive mutex for std::lock_guard, which readers may share by std::shared_lock: the system's own
/// lock. Unlike the mutex of the standard library it needs neither memory nor a handle, which GCC's runtime for Windows
/// takes at the first use and never gives back; so taking it cannot fail, and nothing is left of it when its owner
/// ends.
class NativeLock {
public:
    NativeLock() = default;
    NativeLock(const NativeLock&) = delete;
    NativeLock& operator=(const NativeLock&) = delete;

    void lock() noexcept { AcquireSRWLockExclusive(&lock_); }
    void unlock() noexcept { ReleaseSRWLockExclusive(&lock_); }
    void lock_shared() noexcept { AcquireSRWLockShared(&lock_); }
    void unlock_shared() noexcept { ReleaseSRWLockShared(&lock_); }

private:
    SRWLOCK lock_ = SRWLOCK_INIT;
};

} // namespace orvel
