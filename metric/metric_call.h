#pragma once

#include "host/module_static.h"
#include "host/thread_slot.h"

#include <new>

namespace orvel {

/// Marks the current thread as inside a metric for as long as the object lives. Such a thread must not wait in
/// EvtClose: it may hold a lock that a running delivery waits for, or be that delivery.
class MetricCall {
public:
    /// Throws std::bad_alloc when the thread cannot be marked.
    MetricCall()
    {
        if (!depth->Set(depth->Get() + 1)) {
            throw std::bad_alloc();
        }
    }
    ~MetricCall() { depth->Set(depth->Get() - 1); }
    MetricCall(const MetricCall&) = delete;
    MetricCall& operator=(const MetricCall&) = delete;

    static bool IsThreadInside() noexcept { return depth->Get() != 0; }

private:
    static inline ModuleStatic<ThreadSlot> depth; // how many metrics each thread is inside
};

} // namespace orvel
