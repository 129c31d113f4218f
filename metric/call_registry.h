#pragma once

#include "host/native_lock.h"

#include <windows.h>
#include <winevt.h>

#include <atomic>
#include <memory>
#include <vector>

namespace orvel {

class CMetric;

/// The module's one account of who may still be called back and which threads are inside a metric right now.
///
/// The platform knows a subscription only by its context, the address of a `Subscription`, and may use that address
/// while, and even after, the subscription is closed. So a delivery looks the address up here before it touches it, and
/// holds the metric for as long as it runs. The registry's own lock is never held while anything outside is called.
class CallRegistry {
public:
    static CallRegistry& Instance();

    CallRegistry() noexcept;
    ~CallRegistry();
    CallRegistry(const CallRegistry&) = delete;
    CallRegistry& operator=(const CallRegistry&) = delete;

    /// Whether the process had a place left where each thread notes the calls that it is inside. Without one the module
    /// must not be loaded.
    bool IsReady() const noexcept { return threadSlot_ != TLS_OUT_OF_INDEXES; }

    /// Makes a context known, before the platform can use it. Nothing has to be withdrawn: an expired metric is not
    /// called, and its address stays out of use until many later subscriptions were made.
    void Add(const void* context, const std::weak_ptr<CMetric>& metric);

    /// Lets no delivery that starts from now on reach the metric of a context.
    void Forget(const void* context);

    /// Closes a subscription, waiting for its running callbacks if the platform does so. A thread that is inside a
    /// collection must not wait, since it holds a lock that such a callback may need: it closes when it has left the
    /// collection. One that is inside a delivery must not either, since the platform might wait for that very delivery:
    /// there the closing is left to a thread of the pool. If the pool has no memory, the subscription stays open, its
    /// events find no metric, and the module stays loaded for good.
    void CloseSubscription(EVT_HANDLE subscription) noexcept;

    /// Whether no call is inside the module on behalf of a metric, so that the module may be unloaded.
    bool IsIdle() const noexcept { return activity_.load() == 0; }

    /// One delivery or collection on the current thread; lives on its stack.
    class Call {
    public:
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        /// The metric, alive until this object ends; null for a delivery whose metric is gone.
        CMetric* metric() const { return metric_.get(); }

    protected:
        explicit Call(bool isDelivery);
        void Enter(); // throws std::bad_alloc
        /// Throws std::system_error when this thread is already inside that metric, whose lock it would then wait for
        /// for ever.
        void Hold(std::shared_ptr<CMetric> metric);

        std::shared_ptr<CMetric> metric_;

    private:
        friend class CallRegistry;
        bool CloseAtEnd(EVT_HANDLE subscription) noexcept; // false for lack of memory
        const bool isDelivery_;
        bool entered_ = false;
        Call* outer_ = nullptr;            // that this one was made from inside of
        std::vector<EVT_HANDLE> closings_; // for the end of a collection
    };

    /// A delivery that the platform has started with `context`. Throws as Enter and Hold.
    class Delivery : public Call {
    public:
        explicit Delivery(const void* context);
    };

    /// A collection of a metric by the host. Throws as Enter and Hold.
    class Collection : public Call {
    public:
        explicit Collection(std::shared_ptr<CMetric> metric);
    };

private:
    struct Entry {
        const void* context; // null when forgotten; the reference still keeps the address
        std::weak_ptr<CMetric> metric;
    };

    /// The metric of a context; null when it is gone.
    std::shared_ptr<CMetric> Find(const void* context);

    void CloseOnPool(EVT_HANDLE subscription) noexcept;
    static void CALLBACK CloseOnPoolThread(PTP_CALLBACK_INSTANCE instance, void* subscription);

    const DWORD threadSlot_; // where each thread keeps its innermost call; `thread_local` would take memory
    NativeLock lock_;
    std::vector<Entry> entries_;     // oldest first
    std::atomic<long> activity_ = 0; // running calls and closings left to the pool
};

} // namespace orvel
