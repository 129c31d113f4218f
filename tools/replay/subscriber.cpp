#include "tools/replay/subscriber.h"

#include "tools/native_thread.h"
#include "tools/replay/handles.h"

#include <algorithm>

namespace orvel::replay {

namespace {

constexpr size_t kLongestQueue = 64;

bool IsInsideCallback(const SubscriberList::Snapshot& subscribers)
{
    return std::any_of(subscribers->begin(), subscribers->end(),
                       [](const auto& subscriber) { return subscriber->IsRunningHere(); });
}

} // namespace

bool Subscriber::Wants(const Delivery& delivery) const
{
    return delivery.error != ERROR_SUCCESS || selection_.Matches(*delivery.event);
}

size_t Subscriber::Enqueue(const Delivery& delivery)
{
    std::unique_lock guard(lock_);
    queueChanged_.wait(guard, [&] { return queue_.size() < kLongestQueue || isClosed_; });
    if (isClosed_) {
        return 0;
    }
    if (!hasWorker_) {
        StartThread([self = shared_from_this()] { self->Work(); });
        hasWorker_ = true;
    }
    queue_.push_back(delivery);
    queueChanged_.notify_all();
    return ++enqueued_;
}

void Subscriber::Wait(size_t number)
{
    std::unique_lock guard(lock_);
    ended_.wait(guard, [&] { return finished_ >= number; });
}

void Subscriber::WaitForAll()
{
    std::unique_lock guard(lock_);
    ended_.wait(guard, [&, number = enqueued_] { return finished_ >= number; });
}

void Subscriber::Work()
{
    std::vector<Delivery> taken;
    std::unique_lock guard(lock_);
    for (;;) {
        queueChanged_.wait(guard, [&] { return !queue_.empty() || isClosed_; });
        if (queue_.empty()) {
            return;
        }
        taken.swap(queue_);
        queueChanged_.notify_all();
        guard.unlock();
        for (const Delivery& delivery : taken) {
            DeliverHere(delivery);
        }
        guard.lock();
        finished_ += taken.size();
        taken.clear();
        ended_.notify_all();
    }
}

void Subscriber::DeliverHere(const Delivery& delivery) noexcept // NOLINT(bugprone-exception-escape)
{
    for (DWORD i = 0; i < delivery.times && RunOnce(delivery); ++i) {
    }
}

bool Subscriber::RunOnce(const Delivery& delivery) noexcept // NOLINT(bugprone-exception-escape)
{
    {
        std::unique_lock guard(lock_);
        ended_.wait(guard, [&] { return runner_ == 0; });
        if (isClosed_) {
            return false;
        }
        runner_ = GetCurrentThreadId();
        ++callbacks_;
    }
    CallBack(delivery);
    const std::lock_guard guard(lock_);
    runner_ = 0;
    ended_.notify_all();
    return true;
}

void Subscriber::CallBack(const Delivery& delivery) const noexcept // NOLINT(bugprone-exception-escape)
{
    // EVT_SUBSCRIBE_CALLBACK page: with action 0 the handle is a Win32 code; the callback's result is ignored.
    if (delivery.error != ERROR_SUCCESS) {
        callback_(EvtSubscribeActionError, context_,
                  reinterpret_cast<EVT_HANDLE>(static_cast<ULONG_PTR>(delivery.error)));
        return;
    }
    // Same page: the event's handle is valid during the callback only.
    HandleTable& handles = HandleTable::Instance();
    const EVT_HANDLE handle = handles.Open(ReplayEventHandle, delivery.event);
    if (observer_.callback != nullptr) {
        observer_.callback(EvtSubscribeActionDeliver, observer_.context, handle);
    }
    callback_(EvtSubscribeActionDeliver, context_, handle);
    ReplayHandleKind kind = ReplayEventHandle;
    handles.Close(handle, kind, true);
}

void Subscriber::Close()
{
    const std::lock_guard guard(lock_);
    isClosed_ = true;
    queueChanged_.notify_all();
}

void Subscriber::WaitForCallback()
{
    std::unique_lock guard(lock_);
    if (!IsRunningHere()) {
        ended_.wait(guard, [&, running = callbacks_] { return runner_ == 0 || callbacks_ != running; });
    }
}

SubscriberList& SubscriberList::Instance()
{
    static SubscriberList& list = *new SubscriberList; // outlives the workers, which end with the process
    return list;
}

void SubscriberList::SetObserver(const Observer& observer)
{
    const std::lock_guard guard(lock_);
    observer_ = observer;
}

void SubscriberList::Add(std::shared_ptr<Subscriber> subscriber)
{
    const std::lock_guard guard(lock_);
    subscriber->SetObserver(observer_);
    auto changed = std::make_shared<std::vector<std::shared_ptr<Subscriber>>>(*subscribers_);
    changed->push_back(std::move(subscriber));
    subscribers_ = std::move(changed);
}

void SubscriberList::Remove(const Subscriber& subscriber)
{
    const std::lock_guard guard(lock_);
    auto changed = std::make_shared<std::vector<std::shared_ptr<Subscriber>>>(*subscribers_);
    std::erase_if(*changed, [&](const auto& other) { return other.get() == &subscriber; });
    subscribers_ = std::move(changed);
}

SubscriberList::Snapshot SubscriberList::Current()
{
    const std::lock_guard guard(lock_);
    return subscribers_;
}

void CloseSubscription(Subscriber& subscriber, bool waits)
{
    subscriber.Close();
    SubscriberList::Instance().Remove(subscriber);
    if (waits) {
        subscriber.WaitForCallback();
    }
}

DWORD Deliver(const Delivery& delivery, DeliveryMode mode)
{
    const auto subscribers = SubscriberList::Instance().Current();
    if (IsInsideCallback(subscribers)) {
        return ERROR_POSSIBLE_DEADLOCK;
    }
    std::vector<std::pair<Subscriber*, size_t>> awaited;
    for (const auto& subscriber : *subscribers) {
        if (!subscriber->Wants(delivery)) {
            continue;
        }
        if (mode == DeliveryMode::OnThisThread) {
            subscriber->DeliverHere(delivery);
            continue;
        }
        const size_t number = subscriber->Enqueue(delivery);
        if (mode == DeliveryMode::Awaited) {
            awaited.emplace_back(subscriber.get(), number);
        }
    }
    for (const auto& [subscriber, number] : awaited) {
        subscriber->Wait(number);
    }
    return ERROR_SUCCESS;
}

void WaitForDeliveries()
{
    const auto subscribers = SubscriberList::Instance().Current();
    if (IsInsideCallback(subscribers)) {
        return;
    }
    for (const auto& subscriber : *subscribers) {
        subscriber->WaitForAll();
    }
}

} // namespace orvel::replay
