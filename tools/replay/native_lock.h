#pragma once

#include <windows.h>

#include <mutex>

namespace orvel::replay {

/// The system's own lock, as a C++ mutex. The runtime's condition variable takes a kernel semaphore per hand-over,
/// which costs a delivery to another thread twenty times as much.
class NativeLock {
public:
    void lock() noexcept { AcquireSRWLockExclusive(&lock_); }
    void unlock() noexcept { ReleaseSRWLockExclusive(&lock_); }

private:
    friend class NativeCondition;
    SRWLOCK lock_ = SRWLOCK_INIT;
};

class NativeCondition {
public:
    /// The lock must be held.
    void notify_all() noexcept
    {
        if (waiting_ != 0) {
            WakeAllConditionVariable(&condition_);
        }
    }

    template <typename Predicate>
    void wait(std::unique_lock<NativeLock>& guard, Predicate predicate)
    {
        while (!predicate()) {
            ++waiting_;
            SleepConditionVariableSRW(&condition_, &guard.mutex()->lock_, INFINITE, 0);
            --waiting_;
        }
    }

private:
    unsigned waiting_ = 0;
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

} // namespace orvel::replay
