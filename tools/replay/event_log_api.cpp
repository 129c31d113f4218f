// The Event Log's own functions. The pages named are those of the Windows Event Log reference.

#include "tools/replay/behaviour.h"
#include "tools/replay/handles.h"
#include "tools/replay/refusal.h"
#include "tools/replay/rendering.h"
#include "tools/replay/subscriber.h"
#include "tools/replay/unattended.h"

#include <algorithm>
#include <cstring>

using namespace orvel::replay;

namespace {

constexpr uint64_t kJunk = 0x01CD'CDCD'CDCD'CDCD; // as a FILETIME 2012-11-29 01:06:46.841 UTC

EVT_HANDLE Subscribe(EVT_HANDLE session, HANDLE signal, const wchar_t* channel, const wchar_t* query,
                     EVT_HANDLE bookmark, void* context, EVT_SUBSCRIBE_CALLBACK callback, DWORD flags)
{
    // EvtSubscribe page: the signal event must be NULL with a callback; a bookmark goes with its own flag only.
    if ((callback != nullptr) == (signal != nullptr) || bookmark != nullptr) {
        throw Refusal{ERROR_INVALID_PARAMETER, L"a callback without a signal event and without a bookmark is needed"};
    }
    if (session != nullptr || signal != nullptr || flags != EvtSubscribeToFutureEvents) {
        throw Refusal{ERROR_NOT_SUPPORTED, L"only push subscriptions to future events of this computer are played"};
    }
    bool isStructured = false;
    Selection selection = MakeSelection(channel, query, isStructured);
    CheckChannels(selection, isStructured, *CurrentLog());
    auto subscriber = std::make_shared<Subscriber>(std::move(selection), callback, context);
    const EVT_HANDLE handle = HandleTable::Instance().Open(ReplaySubscriptionHandle, subscriber);
    SubscriberList::Instance().Add(std::move(subscriber));
    return handle;
}

/// Fills a buffer only up to its half, as a platform that reports success all the same.
class HalfFilled {
public:
    HalfFilled(void* buffer, size_t size, bool isOn)
        : half_(static_cast<char*>(buffer) + size / 2), kept_(half_, isOn ? half_ + (size - size / 2) : half_)
    {
    }
    ~HalfFilled() { std::copy(kept_.begin(), kept_.end(), half_); }
    HalfFilled(const HalfFilled&) = delete;
    HalfFilled& operator=(const HalfFilled&) = delete;

private:
    char* half_;
    std::vector<char> kept_;
};

/// What a call reports as used, under its fault. `size` is what the caller's buffer has.
DWORD ReportedSize(const Call& call, size_t needed, size_t size)
{
    const bool isSizing = size < needed;
    if (isSizing && call.Is(ReplayLongerNextTime)) {
        return static_cast<DWORD>(needed / 2);
    }
    if (!isSizing && call.Is(ReplayUsedTooLarge)) {
        return static_cast<DWORD>(size * 2 + 64);
    }
    return static_cast<DWORD>(needed);
}

DWORD Render(const Call& call, const RenderContext& context, const Event& event, DWORD size, void* buffer, DWORD* used,
             DWORD* count)
{
    const size_t room = buffer != nullptr ? size : 0;
    const HalfFilled half(buffer, room, call.Is(ReplayTruncated));
    const size_t needed = RenderValues(context, event, buffer, room);
    // EvtRender page: sizes are in bytes; 122 gives the size that is needed.
    *used = ReportedSize(call, needed, room);
    if (room < needed) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    *count = static_cast<DWORD>(context.size());
    if (call.Is(ReplayNullValues) || call.Is(ReplayOtherTypes)) {
        for (EVT_VARIANT& value : RenderedValues(context, buffer)) {
            value.Type = call.Is(ReplayNullValues) ? EvtVarTypeNull : EvtVarTypeHexInt32;
            value.UInt64Val = kJunk;
        }
    }
    return ERROR_SUCCESS;
}

/// The code with which formatting an event's message ends. Those from 15029 to 15031 come with a text.
DWORD MessageError(const std::wstring* publisher, const Event& event)
{
    // EvtFormatMessage page: the metadata handle may be null for forwarded events, whose rendering is their own.
    const bool hasSource = publisher != nullptr ? EqualNames(*publisher, event.publisher) : event.isForwarded;
    return hasSource && event.message ? event.messageError : DWORD{ERROR_EVT_MESSAGE_NOT_FOUND};
}

bool LeavesText(DWORD error)
{
    return error >= ERROR_EVT_UNRESOLVED_VALUE_INSERT && error <= ERROR_EVT_MAX_INSERTS_REACHED;
}

DWORD Format(const Call& call, const std::wstring* publisher, const Event& event, DWORD size, wchar_t* buffer,
             DWORD* used)
{
    const DWORD error = MessageError(publisher, event);
    *used = 0;
    if (error != ERROR_SUCCESS && (!LeavesText(error) || Behaviour::Instance().Has(ReplayErrorAtSizingCall))) {
        return error;
    }
    // EvtFormatMessage page: sizes are in characters; the samples use the text with the NUL that is counted.
    const std::wstring_view text = *event.message;
    const size_t needed = text.size() + 1;
    const size_t room = buffer != nullptr ? size : 0;
    *used = ReportedSize(call, needed, room);
    // An empty message is known to need no buffer; the platform writes its NUL through a null pointer, this one not.
    if (room < needed && !text.empty()) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (buffer != nullptr && room >= needed) {
        const HalfFilled half(buffer, room * sizeof(wchar_t), call.Is(ReplayTruncated));
        std::copy(text.begin(), text.end(), buffer);
        buffer[text.size()] = L'\0';
        if (call.Is(ReplayFailWithText)) {
            return call.faultCode();
        }
    }
    return error;
}

} // namespace

extern "C" {

EVT_HANDLE WINAPI EvtSubscribe(EVT_HANDLE session, HANDLE signalEvent, LPCWSTR channelPath, LPCWSTR query,
                               EVT_HANDLE bookmark, PVOID context, EVT_SUBSCRIBE_CALLBACK callback, DWORD flags)
{
    const Call call(ReplayEvtSubscribe);
    EVT_HANDLE handle = nullptr;
    DWORD code = call.faultCode();
    try {
        if (call.Is(ReplayFail)) {
            throw Refusal{code, L"a failure was injected"};
        }
        if (const DWORD error = StartUnattended(); error != ERROR_SUCCESS) {
            throw Refusal{error, L"the export that ORVEL_REPLAY names cannot be read"};
        }
        handle = Subscribe(session, signalEvent, channelPath, query, bookmark, context, callback, flags);
        code = ERROR_SUCCESS;
        Behaviour::Instance().SetRefusal({});
    } catch (const Refusal& refusal) {
        code = refusal.code;
        Behaviour::Instance().SetRefusal(refusal.Text());
    }
    call.Finish(code);
    return handle;
}

EVT_HANDLE WINAPI EvtCreateRenderContext(DWORD valuePathsCount, LPCWSTR* valuePaths, DWORD flags)
{
    const Call call(ReplayEvtCreateRenderContext);
    EVT_HANDLE handle = nullptr;
    DWORD code = call.Is(ReplayFail) ? call.faultCode() : ERROR_SUCCESS;
    if (code == ERROR_SUCCESS && (flags != EvtRenderContextValues || (valuePathsCount != 0 && valuePaths == nullptr))) {
        code = flags != EvtRenderContextValues ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER;
    }
    if (code == ERROR_SUCCESS) {
        try {
            auto context = std::make_shared<RenderContext>();
            for (DWORD i = 0; i < valuePathsCount; ++i) {
                context->emplace_back(valuePaths[i] != nullptr ? valuePaths[i] : L"");
            }
            handle = HandleTable::Instance().Open(ReplayContextHandle, std::move(context));
        } catch (const QueryError& error) {
            code = error.code; // which one the platform gives is not documented
        }
    }
    call.Finish(code);
    return handle;
}

BOOL WINAPI EvtRender(EVT_HANDLE contextHandle, EVT_HANDLE fragment, DWORD flags, DWORD bufferSize, PVOID buffer,
                      PDWORD bufferUsed, PDWORD propertyCount)
{
    const Call call(ReplayEvtRender);
    if (call.Is(ReplayFail)) {
        return call.Finish(call.faultCode());
    }
    if (bufferUsed == nullptr || propertyCount == nullptr || flags != EvtRenderEventValues) {
        return call.Finish(flags != EvtRenderEventValues ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
    }
    HandleTable& handles = HandleTable::Instance();
    const auto context = handles.Find<RenderContext>(contextHandle, ReplayContextHandle);
    const auto event = handles.Find<Event>(fragment, ReplayEventHandle);
    if (!context || !event) {
        return call.Finish(ERROR_INVALID_HANDLE);
    }
    if (call.Is(ReplayNoBufferNeeded)) {
        *bufferUsed = 0;
        *propertyCount = static_cast<DWORD>(context->size());
        return call.Finish(ERROR_SUCCESS);
    }
    return call.Finish(Render(call, *context, *event, bufferSize, buffer, bufferUsed, propertyCount));
}

EVT_HANDLE WINAPI EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisherId, LPCWSTR logFilePath, LCID, DWORD)
{
    const Call call(ReplayEvtOpenPublisherMetadata);
    EVT_HANDLE handle = nullptr;
    DWORD code = call.Is(ReplayFail) ? call.faultCode() : ERROR_SUCCESS;
    if (code == ERROR_SUCCESS && (session != nullptr || logFilePath != nullptr || publisherId == nullptr)) {
        code = publisherId == nullptr ? ERROR_INVALID_PARAMETER : ERROR_NOT_SUPPORTED;
    }
    if (code == ERROR_SUCCESS) {
        // Event Log clients see this code for a publisher that is not registered.
        code = ERROR_FILE_NOT_FOUND;
        if (auto publisher = FindPublisher(*CurrentLog(), publisherId)) {
            handle = HandleTable::Instance().Open(ReplayPublisherHandle, std::move(publisher));
            code = ERROR_SUCCESS;
        }
    }
    call.Finish(code);
    return handle;
}

WINBOOL WINAPI EvtFormatMessage(EVT_HANDLE publisherMetadata, EVT_HANDLE event, DWORD, DWORD, PEVT_VARIANT, DWORD flags,
                                DWORD bufferSize, LPWSTR buffer, PDWORD bufferUsed)
{
    const Call call(ReplayEvtFormatMessage);
    if (call.Is(ReplayFail)) {
        return call.Finish(call.faultCode());
    }
    if (bufferUsed == nullptr || flags != EvtFormatMessageEvent) {
        return call.Finish(flags != EvtFormatMessageEvent ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
    }
    HandleTable& handles = HandleTable::Instance();
    const auto record = handles.Find<Event>(event, ReplayEventHandle);
    const auto publisher =
        publisherMetadata != nullptr ? handles.Find<std::wstring>(publisherMetadata, ReplayPublisherHandle) : nullptr;
    if (!record || (publisherMetadata != nullptr && !publisher)) {
        return call.Finish(ERROR_INVALID_HANDLE);
    }
    if (call.Is(ReplayNoBufferNeeded)) {
        *bufferUsed = 0;
        return call.Finish(ERROR_SUCCESS);
    }
    return call.Finish(Format(call, publisher.get(), *record, bufferSize, buffer, bufferUsed));
}

BOOL WINAPI EvtClose(EVT_HANDLE object)
{
    const Call call(ReplayEvtClose);
    if (call.Is(ReplayFail)) {
        return call.Finish(call.faultCode());
    }
    ReplayHandleKind kind{};
    const auto closed = HandleTable::Instance().Close(object, kind);
    if (!closed) {
        return call.Finish(ERROR_INVALID_HANDLE);
    }
    if (kind == ReplaySubscriptionHandle) {
        const auto subscriber = std::const_pointer_cast<void>(closed);
        CloseSubscription(*static_cast<Subscriber*>(subscriber.get()));
    }
    return call.Finish(ERROR_SUCCESS);
}

} // extern "C"
