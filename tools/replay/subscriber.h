#pragma once

#include "tools/replay/log.h"
#include "tools/replay/native_lock.h"
#include "tools/replay/selection.h"

#include <windows.h>
#include <winevt.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

namespace orvel::replay {

/// Counts what is still to be done; the one who asked waits for it.
class Batch {
public:
    void Begin();
    void End();
    void Wait();

private:
    NativeLock lock_;
    NativeCondition ended_;
    size_t running_ = 0;
};

/// What a subscription is called with: an event of a log, some times over, or an error.
struct Delivery {
    std::shared_ptr<const Log> log;
    size_t index = 0;
    DWORD times = 1;
    DWORD error = ERROR_SUCCESS; // delivered with action 0 instead of the event
    std::shared_ptr<Batch> batch;
};

/// One push subscription. Its callbacks come one after another, from a worker thread of its own or from the thread that
/// delivers (EVT_SUBSCRIBE_CALLBACK page: a callback blocks other events from being delivered to it); those of two
/// subscriptions run side by side.
class Subscriber : public std::enable_shared_from_this<Subscriber> {
public:
    Subscriber(Selection selection, EVT_SUBSCRIBE_CALLBACK callback, void* context)
        : selection_(std::move(selection)), callback_(callback), context_(context)
    {
    }

    /// Whether the delivery is meant for this subscription. The answer is kept for as long as the log stays the same.
    bool Wants(const Delivery& delivery);

    /// Calls back on the worker thread; the delivery's batch is told of the end.
    void Enqueue(const Delivery& delivery);

    /// Calls back on this thread. What a callback throws ends the process, as on a thread of the platform.
    void DeliverHere(const Delivery& delivery) noexcept; // NOLINT(bugprone-exception-escape)

    /// No callback starts from now on, unless the mode wants late ones. Waits for the running one if `waits`, but for
    /// one that this very thread runs.
    void Close(bool waits);

    /// After this no delivery is taken, whatever the mode, and the worker ends.
    void Retire();

    bool IsClosed() const noexcept { return isClosed_; }

    /// Whether the current thread is inside this subscription's callback.
    bool IsRunningHere() const noexcept { return runner_ == GetCurrentThreadId(); }

private:
    bool RunOnce(const Delivery& delivery) noexcept;        // NOLINT(bugprone-exception-escape)
    void CallBack(const Delivery& delivery) const noexcept; // NOLINT(bugprone-exception-escape)
    void Work();

    const Selection selection_;
    const EVT_SUBSCRIBE_CALLBACK callback_;
    void* const context_;

    NativeLock lock_;
    NativeCondition turn_;          // a callback has ended, or there is something to do
    std::atomic<DWORD> runner_ = 0; // the thread inside the callback
    size_t callbacks_ = 0;          // started so far
    std::atomic<bool> isClosed_ = false;
    bool isRetired_ = false;
    bool hasWorker_ = false;
    std::deque<Delivery> queue_;
    std::weak_ptr<const Log> judgedLog_;
    std::vector<char> verdicts_; // per entry of judgedLog_: not judged, wanted, not wanted
};

/// The open subscriptions. Any thread.
class SubscriberList {
public:
    using Snapshot = std::shared_ptr<const std::vector<std::shared_ptr<Subscriber>>>;

    static SubscriberList& Instance();
    void Add(std::shared_ptr<Subscriber> subscriber);
    void Remove(const Subscriber& subscriber);
    /// Lets go of closed subscriptions that were kept for late deliveries.
    void RemoveClosed();
    Snapshot Current();

private:
    template <typename Predicate>
    void RemoveIf(Predicate predicate);

    NativeLock lock_;
    Snapshot subscribers_ = std::make_shared<std::vector<std::shared_ptr<Subscriber>>>();
};

/// What EvtClose does with a subscription, as the modes have it. Whether the platform waits for a running callback is
/// not documented; clients rely on it, so it is the default.
void CloseSubscription(Subscriber& subscriber);

/// Delivers to every subscription that wants it, and waits for the end. Gives 0, or ERROR_POSSIBLE_DEADLOCK from inside
/// a callback.
DWORD Deliver(Delivery delivery);

} // namespace orvel::replay
