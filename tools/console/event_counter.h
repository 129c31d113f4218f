#pragma once

#include "lamina/agent_event.h"
#include "tools/console/configuration.h"

#include <windows.h>
#include <winevt.h>

#include <atomic>

namespace orvel::console {

/// Counts the events that are delivered to a metric, by what the metric does with them. It formats an event's message
/// as the metric does and classifies an agent event by the metric's rules.
class EventCounter {
public:
    enum Kind { Recorded, WithoutMessage, OtherKind, KindCount };

    /// A counter is never destroyed: whether a callback still runs after EvtClose is not documented.
    static EventCounter& Create(const MetricConfiguration& metric);

    /// Counts the event; `context` is the counter. A callback for ReplayObserve and for EvtSubscribe.
    static DWORD WINAPI OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event);

    /// Opens a subscription on a live log with the metric's channel and query, which starts and ends shortly after the
    /// metric's. Returns 0 or the code that EvtSubscribe fails with.
    DWORD Subscribe(const MetricConfiguration& metric);
    void Stop();

    unsigned long long Counted(Kind kind) const { return counted_[kind]; }

private:
    explicit EventCounter(bool isLamina) : isLamina_(isLamina) {}
    Kind KindOf(EVT_HANDLE event);
    bool IsFromPublisher(EVT_HANDLE event);

    const bool isLamina_;
    const wchar_t* const publisher_ = isLamina_ ? L"korvex" : L"Application Error";
    EVT_HANDLE subscription_ = nullptr;
    EVT_HANDLE metadata_ = nullptr; // opened, like the context, at the first event; callbacks run one at a time
    EVT_HANDLE context_ = nullptr;
    AgentEventRecord record_; // a member, so that its memory is reused
    std::atomic<unsigned long long> counted_[KindCount] = {};
};

} // namespace orvel::console
