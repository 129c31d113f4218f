#pragma once

#include <windows.h>

#include <mutex>

namespace orvel::replay {

/// The system's own lock, as a C++ mutex. GCC's condition variable takes a kernel semaphore for each hand-over between
/// threads, which makes the delivery of single events several times slower.
class NativeLock {
public:
    void lock() noexcept { AcquireSRWLockExclusive(&lock_); }
    void unlock() noexcept { ReleaseSRWLockExclusive(&lock_); }

private:
    friend class NativeCondition;
    SRWLOCK lock_ = SRWLOCK_INIT;
};

/// A condition variable for NativeLock.
class NativeCondition {
public:
    void notify_all() noexcept { WakeAllConditionVariable(&condition_); }

    template <typename Predicate>
    void wait(std::unique_lock<NativeLock>& guard, Predicate predicate)
    {
        while (!predicate()) {
            SleepConditionVariableSRW(&condition_, &guard.mutex()->lock_, INFINITE, 0);
        }
    }

private:
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

} // namespace orvel::replay
