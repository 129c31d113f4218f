#pragma once

#include "tools/replay/log.h"
#include "tools/replay/selection.h"

#include <windows.h>
#include <winevt.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace orvel::replay {

/// What a subscription is called with: an event or an error.
struct Delivery {
    std::shared_ptr<const Event> event;
    DWORD error = ERROR_SUCCESS; ///< delivered with action 0 instead of the event
};

/// A callback and its context.
struct Callback {
    EVT_SUBSCRIBE_CALLBACK function = nullptr;
    void* context = nullptr;
};

/// One push subscription. Its callbacks run one at a time, on its worker thread or on the thread that delivers
/// (EVT_SUBSCRIBE_CALLBACK page: a callback blocks other events from being delivered to it); those of two subscriptions
/// run in parallel.
class Subscriber : public std::enable_shared_from_this<Subscriber> {
public:
    Subscriber(Selection selection, const Callback& callback, const Callback& observer)
        : selection_(std::move(selection)), callback_(callback), observer_(observer)
    {
    }

    /// Returns whether the subscription selects the event. Errors go to every subscription.
    bool Wants(const Delivery& delivery) const
    {
        return delivery.error != ERROR_SUCCESS || selection_.Matches(*delivery.event);
    }

    /// Queues a delivery for the worker thread, which takes all that is queued at once. Blocks while the queue is full.
    void Enqueue(const Delivery& delivery);

    /// Blocks until the callbacks of all deliveries that are queued now have returned.
    void WaitForQueue();

    /// Calls back on this thread. An exception from the callback ends the process, as on a thread of the platform.
    void DeliverHere(const Delivery& delivery) noexcept; // NOLINT(bugprone-exception-escape)

    /// Ends the worker thread; no callback starts from now on.
    void Close();

    /// Blocks until the callback that runs now, if any, has returned, except on the thread that runs it.
    void WaitForCallback();

    /// Returns whether the current thread is inside this subscription's callback.
    bool IsRunningHere() const noexcept { return runner_ == GetCurrentThreadId(); }

private:
    void CallBack(const Delivery& delivery) const noexcept; // NOLINT(bugprone-exception-escape)
    void Work();

    const Selection selection_;
    const Callback callback_;
    const Callback observer_;

    std::mutex lock_;
    std::condition_variable queueChanged_;
    std::condition_variable ended_; // a callback has returned
    std::atomic<DWORD> runner_ = 0; // the thread inside the callback
    size_t callbacks_ = 0;          // started so far
    bool isClosed_ = false;
    std::vector<Delivery> queue_;
    size_t enqueued_ = 0; // deliveries so far
    size_t finished_ = 0; // of these
};

/// Sets a callback that sees each event just before a subscription does that is opened later.
void SetObserver(const Callback& observer);

/// Opens a subscription.
std::shared_ptr<Subscriber> OpenSubscription(Selection selection, const Callback& callback);

/// Ends a subscription. If `waits`, blocks until its running callback has returned, except on the thread that runs it.
void CloseSubscription(Subscriber& subscriber, bool waits);

/// Where the callbacks of a delivery run, and whether the caller waits for them.
enum class DeliveryMode { Queued, Awaited, OnThisThread };

/// Makes a delivery to every subscription that wants it. Returns 0, or ERROR_POSSIBLE_DEADLOCK from inside a callback.
DWORD Deliver(const Delivery& delivery, DeliveryMode mode);

/// Blocks until all callbacks that are queued have returned. Does nothing inside a callback.
void WaitForDeliveries();

} // namespace orvel::replay
