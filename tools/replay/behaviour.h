#pragma once

#include "tools/replay/replay_control.h"

#include <array>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace orvel::replay {

/// The modes and faults that were set for the whole log, and what ReplayCalls, ReplayClosesInsideCallback and
/// ReplayLastRefusal return. Any thread.
class Behaviour {
public:
    static Behaviour& Instance();

    bool Has(ReplayMode mode) const noexcept { return (modes_.load(std::memory_order_relaxed) & mode) != 0; }
    void SetModes(DWORD modes) noexcept { modes_ = modes; }

    void CountCloseInsideCallback() noexcept { ++closesInsideCallback_; }
    DWORD ClosesInsideCallback() const noexcept { return closesInsideCallback_; }

    void SetRefusal(std::wstring reason);
    std::wstring Refusal();

    void Inject(ReplayFunction function, DWORD occurrence, ReplayFault fault, DWORD code);
    void Reset();
    DWORD Calls(ReplayFunction function) const noexcept { return calls_[function].load(); }

    struct Fault {
        bool isSet = false;
        ReplayFault kind = ReplayFail;
        DWORD code = 0;
    };
    /// Counts a call and returns the fault that is set for it.
    Fault CountCall(ReplayFunction function);

private:
    struct Injection {
        ReplayFunction function;
        DWORD call; // the number of the call that fails; 0: every call
        Fault fault;
    };

    std::atomic<DWORD> modes_ = 0;
    std::array<std::atomic<DWORD>, ReplayFunctionCount> calls_{};
    std::atomic<size_t> injected_ = 0; // size of injections_, to be read without the lock
    std::atomic<DWORD> closesInsideCallback_ = 0;
    std::mutex lock_;
    std::wstring refusal_;
    std::vector<Injection> injections_;
};

/// One call of an exported Event Log function: counts it, holds its fault, and sets the thread's last error.
class Call {
public:
    explicit Call(ReplayFunction function)
        : entryError_(GetLastError()), fault_(Behaviour::Instance().CountCall(function))
    {
    }

    bool Is(ReplayFault fault) const noexcept { return fault_.isSet && fault_.kind == fault; }
    DWORD faultCode() const noexcept { return fault_.code; }

    /// TRUE when `code` is 0. What a success does to the last error is not documented; the samples "Rendering Events"
    /// and "Subscribing to Events" rely on 0.
    BOOL Finish(DWORD code) const noexcept
    {
        const bool isUntouched = code == ERROR_SUCCESS && Behaviour::Instance().Has(ReplayLastErrorUntouched);
        SetLastError(isUntouched ? entryError_ : code);
        return code == ERROR_SUCCESS;
    }

private:
    DWORD entryError_;
    Behaviour::Fault fault_;
};

} // namespace orvel::replay
