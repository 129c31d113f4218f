#pragma once

#include <windows.h>
#include <winevt.h>

#include <functional>
#include <memory>

namespace orvel {

/// One push subscription. Its address is the context that the Event Log passes to every delivery.
struct Subscription {
    using Callback = std::function<void(EVT_HANDLE event, EVT_SUBSCRIBE_NOTIFY_ACTION action)>;

    Subscription() = default;
    ~Subscription() { Close(); }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    /// Closes the handle, if any. On a thread that is inside a metric, a thread of the process's pool closes it;
    /// otherwise this thread does, and waits for running deliveries if EvtClose does. If the pool has no memory, the
    /// subscription stays open and the module stays loaded.
    void Close() noexcept;

    EVT_HANDLE handle = nullptr; ///< null when not subscribed
    Callback callback;
};

/// Opens a push subscription to the future events of a channel that match a query, and keeps the module loaded until it
/// is closed.
///
/// `subscription`: receives the handle, null on failure. A delivery holds a reference while it runs, and does nothing
/// once it has expired. `callback` is called on the Event Log's threads.
/// Returns the platform's last error as an HRESULT, S_OK on success. Throws std::bad_alloc.
HRESULT SubscribeToEvents(const std::shared_ptr<Subscription>& subscription, const wchar_t* channel,
                          const wchar_t* query, Subscription::Callback callback);

} // namespace orvel
