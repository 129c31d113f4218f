#pragma once

#include <windows.h>

#include <atomic>
#include <system_error>

namespace orvel {

/// A slim reader/writer lock for std::lock_guard and std::shared_lock. lock() throws std::system_error
/// (resource_deadlock_would_occur) on a thread that already holds the lock exclusively; a thread must not lock it twice
/// in any other way. Used instead of std::mutex, which with GCC allocates memory at its first use and never frees it.
class NativeLock {
public:
    NativeLock() = default;
    NativeLock(const NativeLock&) = delete;
    NativeLock& operator=(const NativeLock&) = delete;

    void lock()
    {
        if (owner_ == GetCurrentThreadId()) {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        AcquireSRWLockExclusive(&lock_);
        owner_ = GetCurrentThreadId();
    }
    void unlock() noexcept
    {
        owner_ = 0;
        ReleaseSRWLockExclusive(&lock_);
    }
    void lock_shared() noexcept { AcquireSRWLockShared(&lock_); }
    void unlock_shared() noexcept { ReleaseSRWLockShared(&lock_); }

private:
    SRWLOCK lock_ = SRWLOCK_INIT;
    std::atomic<DWORD> owner_ = 0; // of the exclusive lock
};

} // namespace orvel
