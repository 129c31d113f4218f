#pragma once

#include "tools/console/configuration.h"

#include <windows.h>
#include <winevt.h>

#include <atomic>

namespace orvel::console {

/// What came to a metric, as a subscription of the console's own sees it: with the same channel and the same query, on
/// the Event Log that the module uses. It asks for each event's message as the metric does, and an agent event's kind
/// is told by the metric's own rules. On a live log the two subscriptions begin and end a moment apart.
class EventCounter {
public:
    /// What a metric does with an event that it is given.
    enum Kind { Recorded, WithoutMessage, OtherKind, KindCount };

    /// Begins to count. A counter is never destroyed: whether a callback still runs after EvtClose is not documented.
    static EventCounter& Start(const MetricConfiguration& metric);
    void Stop();

    /// Why the Event Log refuses to count; 0 when it counts.
    DWORD Refusal() const { return refusal_; }
    unsigned long long Counted(Kind kind) const { return counted_[kind]; }

private:
    explicit EventCounter(bool isLamina) : isLamina_(isLamina) {}
    static DWORD WINAPI OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event);
    Kind KindOf(EVT_HANDLE event);
    std::wstring Publisher(EVT_HANDLE event);

    const bool isLamina_;
    EVT_HANDLE subscription_ = nullptr;
    EVT_HANDLE metadata_ = nullptr; // this and the context are made at the first event: callbacks come one at a time
    EVT_HANDLE context_ = nullptr;
    DWORD refusal_ = ERROR_SUCCESS;
    std::atomic<unsigned long long> counted_[KindCount] = {};
};

} // namespace orvel::console
