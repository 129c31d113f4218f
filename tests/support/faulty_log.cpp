#include "tests/support/faulty_log.h"

#include "tools/replay/handles.h"
#include "tools/replay/subscriber.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <vector>

using namespace orvel::replay;

namespace {

constexpr ULONGLONG kJunk = 0x01CD'CDCD'CDCD'CDCD; // as a FILETIME 2012-11-29 01:06:46.841 UTC

struct Fault {
    ReplayFunction function = ReplayFunctionCount;
    DWORD call = 0; // the number of the call that fails
    ReplayFault kind = ReplayFail;
    DWORD code = 0;
};

std::atomic<DWORD> modes;
std::array<std::atomic<DWORD>, ReplayFunctionCount> calls;
std::atomic<DWORD> closesInsideCallback;
std::mutex lock;
std::vector<Fault> faults;
// Subscriptions that are still called; never destroyed, since their workers end with the process.
auto& closedLate = *new std::vector<std::shared_ptr<Subscriber>>;

bool HasMode(DWORD mode)
{
    return (modes & mode) != 0;
}

Fault TakeFault(ReplayFunction function)
{
    const DWORD call = ++calls[function];
    const std::lock_guard guard(lock);
    const auto due = std::find_if(faults.begin(), faults.end(),
                                  [&](const Fault& fault) { return fault.function == function && fault.call == call; });
    if (due == faults.end()) {
        return {};
    }
    const Fault fault = *due;
    faults.erase(due);
    return fault;
}

/// One call of a function of the Event Log, and what is to go wrong with it.
class Call {
public:
    explicit Call(ReplayFunction function) : entryError_(GetLastError()), fault_(TakeFault(function)) {}

    bool Has(ReplayFault kind) const { return fault_.function != ReplayFunctionCount && fault_.kind == kind; }
    bool Fails() const { return Has(ReplayFail); }

    /// Sets the code of the fault and returns a failure.
    BOOL Fail() const
    {
        SetLastError(fault_.code);
        return FALSE;
    }

    /// Returns a result of the replay log, whose last error stays unless a mode is to leave that alone.
    template <typename Result>
    Result Return(Result result) const
    {
        if (result && HasMode(ReplayLastErrorUntouched)) {
            SetLastError(entryError_);
        }
        return result;
    }

    /// Changes what a call with a buffer reports as used. `size` and `used` count what the function counts.
    void ChangeUsed(BOOL isDone, DWORD size, DWORD& used) const
    {
        if (isDone && Has(ReplayUsedTooLarge)) {
            used = size * 2 + 64;
        } else if (!isDone && GetLastError() == ERROR_INSUFFICIENT_BUFFER && Has(ReplayLongerNextTime)) {
            used /= 2;
        }
    }

private:
    const DWORD entryError_;
    const Fault fault_;
};

/// Keeps the second half of a buffer as it is, for a call that fills only the first.
class HalfFilled {
public:
    HalfFilled(const Call& call, void* buffer, size_t size)
        : half_(buffer != nullptr ? static_cast<char*>(buffer) + size / 2 : nullptr),
          kept_(half_, half_ != nullptr && call.Has(ReplayTruncated) ? half_ + (size - size / 2) : half_)
    {
    }
    ~HalfFilled() { std::copy(kept_.begin(), kept_.end(), half_); }
    HalfFilled(const HalfFilled&) = delete;
    HalfFilled& operator=(const HalfFilled&) = delete;

private:
    char* const half_;
    const std::vector<char> kept_;
};

void EndLateDeliveries()
{
    const std::lock_guard guard(lock);
    for (const auto& subscriber : closedLate) {
        CloseSubscription(*subscriber, false);
    }
    closedLate.clear();
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

EVT_HANDLE WINAPI FaultyEvtSubscribe(EVT_HANDLE session, HANDLE signalEvent, LPCWSTR channelPath, LPCWSTR query,
                                     EVT_HANDLE bookmark, PVOID context, EVT_SUBSCRIBE_CALLBACK callback, DWORD flags)
{
    const Call call(ReplayEvtSubscribe);
    if (call.Fails()) {
        call.Fail();
        return nullptr;
    }
    return call.Return(EvtSubscribe(session, signalEvent, channelPath, query, bookmark, context, callback, flags));
}

EVT_HANDLE WINAPI FaultyEvtCreateRenderContext(DWORD valuePathsCount, LPCWSTR* valuePaths, DWORD flags)
{
    const Call call(ReplayEvtCreateRenderContext);
    if (call.Fails()) {
        call.Fail();
        return nullptr;
    }
    return call.Return(EvtCreateRenderContext(valuePathsCount, valuePaths, flags));
}

EVT_HANDLE WINAPI FaultyEvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisherId, LPCWSTR logFilePath,
                                                 LCID locale, DWORD flags)
{
    const Call call(ReplayEvtOpenPublisherMetadata);
    if (call.Fails()) {
        call.Fail();
        return nullptr;
    }
    return call.Return(EvtOpenPublisherMetadata(session, publisherId, logFilePath, locale, flags));
}

BOOL WINAPI FaultyEvtRender(EVT_HANDLE context, EVT_HANDLE fragment, DWORD flags, DWORD bufferSize, PVOID buffer,
                            PDWORD bufferUsed, PDWORD propertyCount)
{
    const Call call(ReplayEvtRender);
    if (call.Fails()) {
        return call.Fail();
    }
    if (call.Has(ReplayNoBufferNeeded)) {
        *bufferUsed = 0;
        *propertyCount = 2;
        SetLastError(ERROR_SUCCESS);
        return call.Return(TRUE);
    }
    const HalfFilled half(call, buffer, bufferSize);
    const BOOL isDone = EvtRender(context, fragment, flags, bufferSize, buffer, bufferUsed, propertyCount);
    call.ChangeUsed(isDone, bufferSize, *bufferUsed);
    if (isDone && (call.Has(ReplayNullValues) || call.Has(ReplayOtherTypes))) {
        auto* const values = static_cast<EVT_VARIANT*>(buffer);
        for (DWORD i = 0; i < *propertyCount; ++i) {
            values[i].Type = call.Has(ReplayNullValues) ? EvtVarTypeNull : EvtVarTypeHexInt32;
            values[i].UInt64Val = kJunk;
        }
    }
    return call.Return(isDone);
}

BOOL WINAPI FaultyEvtFormatMessage(EVT_HANDLE publisherMetadata, EVT_HANDLE event, DWORD messageId, DWORD valueCount,
                                   PEVT_VARIANT values, DWORD flags, DWORD bufferSize, LPWSTR buffer, PDWORD bufferUsed)
{
    const Call call(ReplayEvtFormatMessage);
    if (call.Fails()) {
        return call.Fail();
    }
    if (call.Has(ReplayNoBufferNeeded)) {
        *bufferUsed = 0;
        SetLastError(ERROR_SUCCESS);
        return call.Return(TRUE);
    }
    const HalfFilled half(call, buffer, bufferSize * sizeof(wchar_t));
    const BOOL isDone = EvtFormatMessage(publisherMetadata, event, messageId, valueCount, values, flags, bufferSize,
                                         buffer, bufferUsed);
    call.ChangeUsed(isDone, bufferSize, *bufferUsed);
    return isDone && call.Has(ReplayFailWithText) ? call.Fail() : call.Return(isDone);
}

BOOL WINAPI FaultyEvtClose(EVT_HANDLE object)
{
    const Call call(ReplayEvtClose);
    if (call.Fails()) {
        return call.Fail();
    }
    ReplayHandleKind kind{};
    const auto closed = std::const_pointer_cast<void>(HandleTable::Instance().Close(object, kind));
    if (closed && kind == ReplaySubscriptionHandle) {
        CloseFaulty(std::static_pointer_cast<Subscriber>(closed));
    }
    SetLastError(closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
    return call.Return(closed ? TRUE : FALSE);
}

void WINAPI FaultyReplaySetMode(DWORD newModes)
{
    modes = newModes;
    ReplaySetMode(newModes);
    if (!HasMode(ReplayDeliverAfterClose)) {
        EndLateDeliveries();
    }
}

void WINAPI ReplayInject(ReplayFunction function, DWORD occurrence, ReplayFault fault, DWORD code)
{
    const std::lock_guard guard(lock);
    faults.push_back({function, calls[function] + occurrence, fault, code});
}

void WINAPI ReplayReset()
{
    FaultyReplaySetMode(0);
    const std::lock_guard guard(lock);
    faults.clear();
    closesInsideCallback = 0;
    std::fill(calls.begin(), calls.end(), 0);
}

DWORD WINAPI ReplayCalls(ReplayFunction function)
{
    return calls[function];
}

DWORD WINAPI ReplayClosesInsideCallback()
{
    return closesInsideCallback;
}

} // extern "C"
