#pragma once

#include <windows.h>

#include <atomic>
#include <string>

namespace orvel {

/// The module as a COM server: its handle, the scope of registration and the lock count. Any thread.
class CEventLogProviderModule {
public:
    static CEventLogProviderModule& Instance() noexcept;

    /// Called by DllMain when the module is loaded.
    void SetHandle(HMODULE handle) noexcept { handle_ = handle; }
    /// Returns null before SetHandle was called.
    HMODULE Handle() const noexcept { return handle_; }

    /// Returns the full path of the module's file; empty on failure, with the last error set. Throws std::bad_alloc.
    std::wstring Path() const;

    /// Returns whether registration changes the user's classes instead of the machine's. ChoosePerUser cannot be
    /// undone.
    bool IsPerUser() const noexcept { return isPerUser_.load(); }
    void ChoosePerUser() noexcept { isPerUser_ = true; }

    /// Adds or removes the lock of one object, class factory or LockServer call.
    void Lock() noexcept { ++lockCount_; }
    void Unlock() noexcept { --lockCount_; }
    bool IsLocked() const noexcept { return lockCount_ != 0; }

private:
    HMODULE handle_ = nullptr;
    std::atomic<long> lockCount_ = 0;
    std::atomic<bool> isPerUser_ = false;
};

/// Keeps the module locked for the life of the object that has it as a member.
class ModuleLock {
public:
    ModuleLock() noexcept { CEventLogProviderModule::Instance().Lock(); }
    ~ModuleLock() { CEventLogProviderModule::Instance().Unlock(); }
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;
};

} // namespace orvel
