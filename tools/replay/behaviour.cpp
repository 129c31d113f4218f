#include "tools/replay/behaviour.h"

#include <algorithm>

namespace orvel::replay {

Behaviour& Behaviour::Instance()
{
    static Behaviour& behaviour = *new Behaviour; // outlives the workers, which end with the process
    return behaviour;
}

void Behaviour::SetRefusal(std::wstring reason)
{
    const std::lock_guard guard(lock_);
    refusal_ = std::move(reason);
}

std::wstring Behaviour::Refusal()
{
    const std::lock_guard guard(lock_);
    return refusal_;
}

void Behaviour::Inject(ReplayFunction function, DWORD occurrence, ReplayFault fault, DWORD code)
{
    const std::lock_guard guard(lock_);
    injections_.push_back({function, occurrence == 0 ? 0 : calls_[function] + occurrence, {true, fault, code}});
    injected_ = injections_.size();
}

void Behaviour::Reset()
{
    const std::lock_guard guard(lock_);
    injections_.clear();
    injected_ = 0;
    modes_ = 0;
    closesInsideCallback_ = 0;
    for (auto& calls : calls_) {
        calls = 0;
    }
}

Behaviour::Fault Behaviour::CountCall(ReplayFunction function)
{
    const DWORD call = ++calls_[function];
    if (injected_ == 0) {
        return {};
    }
    const std::lock_guard guard(lock_);
    const auto due = std::find_if(injections_.begin(), injections_.end(), [&](const Injection& injection) {
        return injection.function == function && (injection.call == call || injection.call == 0);
    });
    if (due == injections_.end()) {
        return {};
    }
    const Fault fault = due->fault;
    if (due->call != 0) {
        injections_.erase(due);
        injected_ = injections_.size();
    }
    return fault;
}

} // namespace orvel::replay
