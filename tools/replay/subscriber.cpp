#include "tools/replay/subscriber.h"

#include "tools/native_thread.h"
#include "tools/replay/handles.h"

#include <algorithm>

namespace orvel::replay {

namespace {

constexpr size_t kLongestQueue = 64;

using Subscribers = std::vector<std::shared_ptr<Subscriber>>;

std::mutex openLock;
Callback currentObserver;
auto& open = *new Subscribers; // outlives the workers, which end with the process

/// Returns the open subscriptions.
Subscribers OpenSubscribers()
{
    const std::lock_guard guard(openLock);
    return open;
}

bool IsInsideCallback(const Subscribers& subscribers)
{
    return std::ranges::any_of(subscribers, [](const auto& subscriber) { return subscriber->IsRunningHere(); });
}

void WaitFor(const Subscribers& subscribers)
{
    std::ranges::for_each(subscribers, [](const auto& subscriber) { subscriber->WaitForQueue(); });
}

} // namespace

void Subscriber::Enqueue(const Delivery& delivery)
{
    std::unique_lock guard(lock_);
    queueChanged_.wait(guard, [&] { return queue_.size() < kLongestQueue || isClosed_; });
    if (isClosed_) {
        return;
    }
    queue_.push_back(delivery);
    if (enqueued_ == 0) {
        StartThread([self = shared_from_this()] { self->Work(); });
    }
    ++enqueued_;
    queueChanged_.notify_all();
}

void Subscriber::WaitForQueue()
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
    std::unique_lock guard(lock_);
    ended_.wait(guard, [&] { return runner_ == 0; });
    if (isClosed_) {
        return;
    }
    runner_ = GetCurrentThreadId();
    ++callbacks_;
    guard.unlock();
    CallBack(delivery);
    guard.lock();
    runner_ = 0;
    ended_.notify_all();
}

void Subscriber::CallBack(const Delivery& delivery) const noexcept // NOLINT(bugprone-exception-escape)
{
    // EVT_SUBSCRIBE_CALLBACK page: with action 0 the handle is a Win32 code; the callback's result is ignored.
    if (delivery.error != ERROR_SUCCESS) {
        callback_.function(EvtSubscribeActionError, callback_.context,
                           reinterpret_cast<EVT_HANDLE>(static_cast<ULONG_PTR>(delivery.error)));
        return;
    }
    // Same page: the event's handle is valid during the callback only.
    HandleTable& handles = HandleTable::Instance();
    const EVT_HANDLE handle = handles.Open(delivery.event);
    if (observer_.function != nullptr) {
        observer_.function(EvtSubscribeActionDeliver, observer_.context, handle);
    }
    callback_.function(EvtSubscribeActionDeliver, callback_.context, handle);
    handles.EndDelivery(handle);
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

void SetObserver(const Callback& observer)
{
    const std::lock_guard guard(openLock);
    currentObserver = observer;
}

std::shared_ptr<Subscriber> OpenSubscription(Selection selection, const Callback& callback)
{
    const std::lock_guard guard(openLock);
    return open.emplace_back(std::make_shared<Subscriber>(std::move(selection), callback, currentObserver));
}

void CloseSubscription(Subscriber& subscriber, bool waits)
{
    subscriber.Close();
    {
        const std::lock_guard guard(openLock);
        std::erase_if(open, [&](const auto& other) { return other.get() == &subscriber; });
    }
    if (waits) {
        subscriber.WaitForCallback();
    }
}

DWORD Deliver(const Delivery& delivery, DeliveryMode mode)
{
    const Subscribers subscribers = OpenSubscribers();
    if (IsInsideCallback(subscribers)) {
        return ERROR_POSSIBLE_DEADLOCK;
    }
    for (const auto& subscriber : subscribers) {
        if (!subscriber->Wants(delivery)) {
            continue;
        }
        if (mode == DeliveryMode::OnThisThread) {
            subscriber->DeliverHere(delivery);
        } else {
            subscriber->Enqueue(delivery);
        }
    }
    if (mode == DeliveryMode::Awaited) {
        WaitFor(subscribers);
    }
    return ERROR_SUCCESS;
}

void WaitForDeliveries()
{
    const Subscribers subscribers = OpenSubscribers();
    if (!IsInsideCallback(subscribers)) {
        WaitFor(subscribers);
    }
}

} // namespace orvel::replay
