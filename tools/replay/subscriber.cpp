#include "tools/replay/subscriber.h"

#include "tools/replay/behaviour.h"
#include "tools/replay/handles.h"

#include <algorithm>
#include <thread>

namespace orvel::replay {

namespace {

enum Verdict : char { NotJudged, Wanted, NotWanted };

} // namespace

void Batch::Begin()
{
    const std::lock_guard guard(lock_);
    ++running_;
}

void Batch::End()
{
    const std::lock_guard guard(lock_);
    if (--running_ == 0) {
        ended_.notify_all();
    }
}

void Batch::Wait()
{
    std::unique_lock guard(lock_);
    ended_.wait(guard, [&] { return running_ == 0; });
}

bool Subscriber::Wants(const Delivery& delivery)
{
    if (delivery.error != ERROR_SUCCESS) {
        return true;
    }
    const std::lock_guard guard(lock_);
    if (judgedLog_.owner_before(delivery.log) || delivery.log.owner_before(judgedLog_)) {
        judgedLog_ = delivery.log;
        verdicts_.assign(delivery.log->entries.size(), NotJudged);
    }
    char& verdict = verdicts_[delivery.index];
    if (verdict == NotJudged) {
        verdict = selection_.Matches(std::get<Event>(delivery.log->entries[delivery.index])) ? Wanted : NotWanted;
    }
    return verdict == Wanted;
}

void Subscriber::Enqueue(const Delivery& delivery)
{
    const std::lock_guard guard(lock_);
    if (isRetired_) {
        return;
    }
    if (!hasWorker_) {
        std::thread([self = shared_from_this()] { self->Work(); }).detach();
        hasWorker_ = true;
    }
    queue_.push_back(delivery);
    delivery.batch->Begin();
    turn_.notify_all();
}

void Subscriber::Work()
{
    std::unique_lock guard(lock_);
    for (;;) {
        turn_.wait(guard, [&] { return !queue_.empty() || isRetired_; });
        if (queue_.empty()) {
            return;
        }
        const Delivery delivery = std::move(queue_.front());
        queue_.pop_front();
        guard.unlock();
        DeliverHere(delivery);
        delivery.batch->End();
        guard.lock();
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
        turn_.wait(guard, [&] { return runner_ == 0; });
        if (isRetired_ || (isClosed_ && !Behaviour::Instance().Has(ReplayDeliverAfterClose))) {
            return false;
        }
        runner_ = GetCurrentThreadId();
        ++callbacks_;
    }
    CallBack(delivery);
    const std::lock_guard guard(lock_);
    runner_ = 0;
    turn_.notify_all();
    return true;
}

void Subscriber::CallBack(const Delivery& delivery) const noexcept // NOLINT(bugprone-exception-escape)
{
    // EVT_SUBSCRIBE_CALLBACK page: with action 0 the handle is a Win32 code; what the callback gives is ignored.
    if (delivery.error != ERROR_SUCCESS) {
        callback_(EvtSubscribeActionError, context_,
                  reinterpret_cast<EVT_HANDLE>(static_cast<ULONG_PTR>(delivery.error)));
        return;
    }
    // Same page: the event's handle is valid during the callback only.
    const auto* const event = &std::get<Event>(delivery.log->entries[delivery.index]);
    HandleTable& handles = HandleTable::Instance();
    const EVT_HANDLE handle = handles.Open(ReplayEventHandle, std::shared_ptr<const void>(delivery.log, event));
    callback_(EvtSubscribeActionDeliver, context_, handle);
    ReplayHandleKind kind = ReplayEventHandle;
    handles.Close(handle, kind, true);
}

void Subscriber::Close(bool waits)
{
    std::unique_lock guard(lock_);
    isClosed_ = true;
    if (waits && !IsRunningHere()) {
        turn_.wait(guard, [&, running = callbacks_] { return runner_ == 0 || callbacks_ != running; });
    }
}

void Subscriber::Retire()
{
    const std::lock_guard guard(lock_);
    isRetired_ = true;
    turn_.notify_all();
}

SubscriberList& SubscriberList::Instance()
{
    static SubscriberList& list = *new SubscriberList; // outlives the workers, which end with the process
    return list;
}

void SubscriberList::Add(std::shared_ptr<Subscriber> subscriber)
{
    const std::lock_guard guard(lock_);
    auto changed = std::make_shared<std::vector<std::shared_ptr<Subscriber>>>(*subscribers_);
    changed->push_back(std::move(subscriber));
    subscribers_ = std::move(changed);
}

template <typename Predicate>
void SubscriberList::RemoveIf(Predicate predicate)
{
    const std::lock_guard guard(lock_);
    auto changed = std::make_shared<std::vector<std::shared_ptr<Subscriber>>>(*subscribers_);
    const auto removed = std::stable_partition(changed->begin(), changed->end(),
                                               [&](const auto& subscriber) { return !predicate(*subscriber); });
    std::for_each(removed, changed->end(), [](const auto& subscriber) { subscriber->Retire(); });
    changed->erase(removed, changed->end());
    subscribers_ = std::move(changed);
}

void SubscriberList::Remove(const Subscriber& subscriber)
{
    RemoveIf([&](const Subscriber& other) { return &other == &subscriber; });
}

void SubscriberList::RemoveClosed()
{
    RemoveIf([](const Subscriber& subscriber) { return subscriber.IsClosed(); });
}

SubscriberList::Snapshot SubscriberList::Current()
{
    const std::lock_guard guard(lock_);
    return subscribers_;
}

void CloseSubscription(Subscriber& subscriber)
{
    Behaviour& behaviour = Behaviour::Instance();
    if (subscriber.IsRunningHere()) {
        behaviour.CountCloseInsideCallback();
    }
    subscriber.Close(!behaviour.Has(ReplayCloseDoesNotWait));
    if (!behaviour.Has(ReplayDeliverAfterClose)) {
        SubscriberList::Instance().Remove(subscriber);
    }
}

DWORD Deliver(Delivery delivery)
{
    const auto subscribers = SubscriberList::Instance().Current();
    if (std::any_of(subscribers->begin(), subscribers->end(),
                    [](const auto& subscriber) { return subscriber->IsRunningHere(); })) {
        return ERROR_POSSIBLE_DEADLOCK;
    }
    const bool isHere = Behaviour::Instance().Has(ReplayOnCallingThread);
    if (!isHere) {
        delivery.batch = std::make_shared<Batch>();
    }
    for (const auto& subscriber : *subscribers) {
        if (!subscriber->Wants(delivery)) {
            continue;
        }
        if (isHere) {
            subscriber->DeliverHere(delivery);
        } else {
            subscriber->Enqueue(delivery);
        }
    }
    if (delivery.batch) {
        delivery.batch->Wait();
    }
    return ERROR_SUCCESS;
}

} // namespace orvel::replay
