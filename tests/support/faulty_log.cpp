#include "tests/support/faulty_log.h"

#include "tools/replay/handles.h"
#include "tools/replay/subscriber.h"

#include <atomic>
#include <mutex>
#include <vector>

using namespace orvel::replay;

namespace {

std::atomic<DWORD> modes;
std::atomic<DWORD> closesInsideCallback;
std::mutex lock;
// Subscriptions that are still called; never destroyed, since their workers end with the process.
auto& closedLate = *new std::vector<std::shared_ptr<Subscriber>>;

bool HasMode(DWORD mode)
{
    return (modes & mode) != 0;
}

void CloseFaulty(const std::shared_ptr<Subscriber>& subscriber)
{
    closesInsideCallback += subscriber->IsRunningHere() ? 1 : 0;
    const bool waits = !HasMode(ReplayCloseDoesNotWait);
    if (!HasMode(ReplayDeliverAfterClose)) {
        CloseSubscription(*subscriber, waits);
        return;
    }
    {
        const std::lock_guard guard(lock);
        closedLate.push_back(subscriber);
    }
    if (waits) {
        subscriber->WaitForCallback();
    }
}

} // namespace

extern "C" {

BOOL WINAPI FaultyEvtClose(EVT_HANDLE object)
{
    const auto closed = HandleTable::Instance().Close(object);
    const auto* const subscriber = closed ? std::get_if<std::shared_ptr<Subscriber>>(&*closed) : nullptr;
    if (subscriber != nullptr) {
        CloseFaulty(*subscriber);
    }
    SetLastError(closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
    return closed ? TRUE : FALSE;
}

void WINAPI FaultyReplaySetMode(DWORD newModes)
{
    modes = newModes;
    ReplaySetMode(newModes);
    const std::lock_guard guard(lock);
    if (!HasMode(ReplayDeliverAfterClose)) {
        for (const auto& subscriber : closedLate) {
            CloseSubscription(*subscriber, false);
        }
        closedLate.clear();
    }
}

DWORD WINAPI ReplayClosesInsideCallback()
{
    return closesInsideCallback;
}

} // extern "C"
