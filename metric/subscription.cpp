#include "metric/subscription.h"

#include "host/com_failure.h"
#include "host/module_static.h"
#include "host/native_lock.h"
#include "metric/metric_call.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace orvel {

namespace {

/// Finds subscriptions by their context. The Event Log may call with a context whose subscription has ended, so a
/// delivery looks it up here before it touches it.
class SubscriptionTable {
public:
    void Add(const std::shared_ptr<Subscription>& subscription)
    {
        // A weak reference keeps the memory of its metric, which std::make_shared has made, and so the address from
        // being reused. Expired entries are kept, so that a late delivery to an old subscription cannot reach a new one
        // at the same address.
        constexpr auto kExpiredKept = 64;
        const auto hasExpired = [](const Entry& entry) { return entry.subscription.expired(); };
        const std::lock_guard guard(lock_);
        if (std::ranges::count_if(entries_, hasExpired) >= kExpiredKept) {
            entries_.erase(std::ranges::find_if(entries_, hasExpired));
        }
        entries_.push_back({subscription.get(), subscription});
    }

    /// Returns null when the subscription has expired.
    std::shared_ptr<Subscription> Find(const void* context)
    {
        const std::shared_lock guard(lock_);
        const auto entry = std::ranges::find(entries_, context, &Entry::context);
        return entry != entries_.end() ? entry->subscription.lock() : nullptr;
    }

private:
    struct Entry {
        const void* context;
        std::weak_ptr<Subscription> subscription;
    };
    NativeLock lock_;
    std::vector<Entry> entries_; // oldest first
};

ModuleStatic<SubscriptionTable> subscriptions;

DWORD WINAPI OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    if (action == EvtSubscribeActionError || action == EvtSubscribeActionDeliver) {
        EnterModule([&] {
            const MetricCall call; // outlives `subscription`: if it is the last reference, Close must not wait here
            if (const std::shared_ptr<Subscription> subscription = subscriptions->Find(context)) {
                subscription->callback(event, action);
            }
        });
    }
    return ERROR_SUCCESS;
}

void CALLBACK CloseNow(PTP_CALLBACK_INSTANCE /*instance*/, void* handle)
{
    const ModuleCall call;
    EvtClose(handle);
    ModuleCall::ReturnLoaderReference();
}

} // namespace

void Subscription::Close() noexcept
{
    const EVT_HANDLE closing = std::exchange(handle, nullptr);
    if (closing == nullptr) {
        return;
    }
    if (MetricCall::IsThreadInside()) {
        TrySubmitThreadpoolCallback(&CloseNow, closing, nullptr);
    } else {
        CloseNow(nullptr, closing);
    }
}

HRESULT SubscribeToEvents(const std::shared_ptr<Subscription>& subscription, const wchar_t* channel,
                          const wchar_t* query, Subscription::Callback callback)
{
    subscription->callback = std::move(callback);
    subscriptions->Add(subscription);
    if (!ModuleCall::AddLoaderReference()) {
        return HresultFromWin32(GetLastError());
    }
    SetLastError(ERROR_SUCCESS);
    subscription->handle = EvtSubscribe(nullptr, nullptr, channel, query, nullptr, subscription.get(), &OnNotification,
                                        EvtSubscribeToFutureEvents);
    const HRESULT hr = HresultFromWin32(GetLastError());
    if (subscription->handle == nullptr) {
        ModuleCall::ReturnLoaderReference();
    }
    return hr;
}

} // namespace orvel
