#include "metric/call_registry.h"

#include "metric/metric.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <system_error>

namespace orvel {

namespace {

CallRegistry theRegistry; // made with the module: a static of the function would take memory and a lock at first use

} // namespace

CallRegistry& CallRegistry::Instance()
{
    return theRegistry;
}

CallRegistry::CallRegistry() noexcept : threadSlot_(TlsAlloc()) {}

CallRegistry::~CallRegistry()
{
    TlsFree(threadSlot_);
}

void CallRegistry::Add(const void* context, const std::weak_ptr<CMetric>& metric)
{
    // An entry's weak reference keeps the metric's memory, made in one block with its count, from being given out
    // again: a late delivery to an old subscription cannot reach a new one at the same address.
    constexpr auto kExpiredKept = 64;
    const std::lock_guard guard(lock_);
    entries_.push_back({context, metric});
    auto surplus = std::count_if(entries_.begin(), entries_.end(), [](const Entry& e) { return e.metric.expired(); }) -
                   kExpiredKept;
    std::erase_if(entries_, [&](const Entry& e) { return surplus > 0 && e.metric.expired() && surplus-- > 0; });
}

void CallRegistry::Forget(const void* context)
{
    const std::lock_guard guard(lock_);
    for (Entry& entry : entries_) {
        entry.context = entry.context == context ? nullptr : entry.context;
    }
}

std::shared_ptr<CMetric> CallRegistry::Find(const void* context)
{
    const std::shared_lock guard(lock_);
    const auto entry =
        std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& e) { return e.context == context; });
    return context == nullptr || entry == entries_.rend() ? nullptr : entry->metric.lock();
}

void CallRegistry::CloseSubscription(EVT_HANDLE subscription) noexcept
{
    auto* const innermost = static_cast<Call*>(TlsGetValue(threadSlot_));
    bool isInDelivery = false;
    for (const Call* call = innermost; call != nullptr; call = call->outer_) {
        isInDelivery = isInDelivery || call->isDelivery_;
    }
    if (innermost == nullptr) {
        EvtClose(subscription);
    } else if (isInDelivery || !innermost->CloseAtEnd(subscription)) {
        CloseOnPool(subscription);
    }
}

void CallRegistry::CloseOnPool(EVT_HANDLE subscription) noexcept
{
    // The pool's thread runs code of this module, so it takes a reference on it and gives it back when it is done.
    // Neither reference nor count is given back for a subscription that stays open: it could still call the module.
    ++activity_;
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const wchar_t*>(&CloseOnPoolThread),
                           &module)) {
        TrySubmitThreadpoolCallback(&CloseOnPoolThread, subscription, nullptr);
    }
}

void CALLBACK CallRegistry::CloseOnPoolThread(PTP_CALLBACK_INSTANCE instance, void* subscription)
{
    EvtClose(subscription);
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&CloseOnPoolThread), &module);
    FreeLibraryWhenCallbackReturns(instance, module);
    --Instance().activity_;
}

CallRegistry::Call::Call(bool isDelivery) : isDelivery_(isDelivery)
{
    ++Instance().activity_;
}

void CallRegistry::Call::Enter()
{
    const DWORD slot = Instance().threadSlot_;
    outer_ = static_cast<Call*>(TlsGetValue(slot));
    entered_ = TlsSetValue(slot, this) != FALSE;
    if (!entered_) {
        throw std::bad_alloc(); // the system has a few places ready for each thread and makes more when they are used
    }
}

void CallRegistry::Call::Hold(std::shared_ptr<CMetric> metric)
{
    for (const Call* outer = outer_; outer != nullptr; outer = outer->outer_) {
        if (metric && outer->metric_ == metric) {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
    }
    metric_ = std::move(metric);
}

CallRegistry::Call::~Call()
{
    // The metric may end here, on a thread that still counts as inside the delivery: its subscription is then closed
    // elsewhere. A collection has let go of its lock, and its thread may close.
    CallRegistry& registry = Instance();
    if (isDelivery_) {
        metric_.reset();
    }
    if (entered_) {
        TlsSetValue(registry.threadSlot_, outer_);
    }
    metric_.reset();
    for (const EVT_HANDLE subscription : closings_) {
        registry.CloseSubscription(subscription); // at once, unless this call was made from inside another
    }
    --registry.activity_;
}

bool CallRegistry::Call::CloseAtEnd(EVT_HANDLE subscription) noexcept
{
    try {
        closings_.push_back(subscription);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

CallRegistry::Delivery::Delivery(const void* context) : Call(true)
{
    Enter(); // first: should the metric end with this call, its subscription must not be closed in here
    Hold(Instance().Find(context));
}

CallRegistry::Collection::Collection(std::shared_ptr<CMetric> metric) : Call(false)
{
    Enter();
    Hold(std::move(metric));
}

} // namespace orvel
