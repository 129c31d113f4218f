// The Event Log API. Comments name the pages of the Windows Event Log reference.

#include "tools/replay/handles.h"
#include "tools/replay/refusal.h"
#include "tools/replay/rendering.h"
#include "tools/replay/subscriber.h"
#include "tools/replay/unattended.h"

#include <algorithm>

using namespace orvel::replay;

namespace {

/// Sets the last error and returns whether `code` is 0. Success resets it, because the pages "Rendering Events" and
/// "Subscribing to Events" rely on that; it is not documented.
BOOL Finish(DWORD code)
{
    SetLastError(code);
    return code == ERROR_SUCCESS;
}

/// Opens a handle and sets the last error to success.
EVT_HANDLE Open(HandleObject object)
{
    const EVT_HANDLE handle = HandleTable::Instance().Open(std::move(object));
    Finish(ERROR_SUCCESS);
    return handle;
}

/// Sets the last error and returns null.
EVT_HANDLE Fail(DWORD code)
{
    Finish(code);
    return nullptr;
}

/// Formats an event's message as EvtFormatMessage does, and returns its error. `publisher`: null without metadata.
DWORD Format(const std::wstring* publisher, const Event& event, DWORD size, wchar_t* buffer, DWORD* used)
{
    // Forwarded events contain their message, so the metadata handle may be null (EvtFormatMessage page).
    const bool hasSource = publisher != nullptr ? EqualNames(*publisher, event.publisher) : event.isForwarded;
    const DWORD error = hasSource && event.message ? event.messageError : DWORD{ERROR_EVT_MESSAGE_NOT_FOUND};
    *used = 0;
    // These errors come with a text.
    const bool hasInserts = error >= ERROR_EVT_UNRESOLVED_VALUE_INSERT && error <= ERROR_EVT_MAX_INSERTS_REACHED;
    if (error != ERROR_SUCCESS && !hasInserts) {
        return error;
    }
    // In characters, including the terminator (EvtFormatMessage page and samples).
    const std::wstring_view text = *event.message;
    const size_t needed = text.size() + 1;
    const size_t capacity = buffer != nullptr ? size : 0;
    *used = static_cast<DWORD>(needed);
    // An empty message succeeds without a buffer, as on Windows, which writes the terminator through the null pointer.
    if (capacity < needed && !text.empty()) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (capacity >= needed) {
        std::copy(text.begin(), text.end(), buffer);
        buffer[text.size()] = L'\0';
    }
    return error;
}

} // namespace

extern "C" {

EVT_HANDLE WINAPI EvtSubscribe(EVT_HANDLE session, HANDLE signalEvent, LPCWSTR channelPath, LPCWSTR query,
                               EVT_HANDLE bookmark, PVOID context, EVT_SUBSCRIBE_CALLBACK callback, DWORD flags)
try {
    if (const DWORD error = StartUnattended(); error != ERROR_SUCCESS) {
        throw Refusal{error, L"cannot read the export named by ORVEL_REPLAY"};
    }
    // EvtSubscribe page: the signal event must be NULL with a callback; a bookmark goes with its own flag only.
    if ((callback != nullptr) == (signalEvent != nullptr) || bookmark != nullptr) {
        throw Refusal{ERROR_INVALID_PARAMETER,
                      L"a subscription needs a callback, and neither a signal event nor a bookmark"};
    }
    if (session != nullptr || signalEvent != nullptr || flags != EvtSubscribeToFutureEvents) {
        throw Refusal{ERROR_NOT_SUPPORTED,
                      L"the replay log supports only push subscriptions to future events of this computer"};
    }
    Selection selection = MakeSelection(channelPath, query);
    CheckChannels(selection, *CurrentLog());
    auto subscriber = OpenSubscription(std::move(selection), {callback, context});
    SetLastRefusal({});
    return Open(std::move(subscriber));
} catch (const Refusal& refusal) {
    SetLastRefusal(refusal.Text());
    return Fail(refusal.code);
}

EVT_HANDLE WINAPI EvtCreateRenderContext(DWORD valuePathsCount, LPCWSTR* valuePaths, DWORD flags)
try {
    if (flags != EvtRenderContextValues) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    if (valuePathsCount != 0 && valuePaths == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    auto context = std::make_shared<RenderContext>();
    for (DWORD i = 0; i < valuePathsCount; ++i) {
        context->emplace_back(valuePaths[i] != nullptr ? valuePaths[i] : L"");
    }
    return Open(std::move(context));
} catch (const Refusal& refusal) {
    return Fail(refusal.code); // which one the platform returns is not documented
}

BOOL WINAPI EvtRender(EVT_HANDLE contextHandle, EVT_HANDLE fragment, DWORD flags, DWORD bufferSize, PVOID buffer,
                      PDWORD bufferUsed, PDWORD propertyCount)
{
    if (flags != EvtRenderEventValues) {
        return Finish(ERROR_NOT_SUPPORTED);
    }
    if (bufferUsed == nullptr || propertyCount == nullptr) {
        return Finish(ERROR_INVALID_PARAMETER);
    }
    HandleTable& handles = HandleTable::Instance();
    const auto context = handles.Find<RenderContext>(contextHandle);
    const auto event = handles.Find<Event>(fragment);
    if (!context || !event) {
        return Finish(ERROR_INVALID_HANDLE);
    }
    const size_t capacity = buffer != nullptr ? bufferSize : 0;
    const size_t needed = RenderValues(*context, *event, buffer, capacity);
    *bufferUsed = static_cast<DWORD>(needed); // in bytes (EvtRender page)
    if (capacity < needed) {
        return Finish(ERROR_INSUFFICIENT_BUFFER);
    }
    *propertyCount = static_cast<DWORD>(context->size());
    return Finish(ERROR_SUCCESS);
}

EVT_HANDLE WINAPI EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisherId, LPCWSTR logFilePath, LCID, DWORD)
{
    if (publisherId == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (session != nullptr || logFilePath != nullptr) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    auto publisher = FindPublisher(CurrentLog(), publisherId);
    if (!publisher) {
        return Fail(ERROR_FILE_NOT_FOUND); // what Event Log clients see for a publisher that is not registered
    }
    return Open(std::move(publisher));
}

WINBOOL WINAPI EvtFormatMessage(EVT_HANDLE publisherMetadata, EVT_HANDLE event, DWORD, DWORD, PEVT_VARIANT, DWORD flags,
                                DWORD bufferSize, LPWSTR buffer, PDWORD bufferUsed)
{
    if (flags != EvtFormatMessageEvent) {
        return Finish(ERROR_NOT_SUPPORTED);
    }
    if (bufferUsed == nullptr) {
        return Finish(ERROR_INVALID_PARAMETER);
    }
    HandleTable& handles = HandleTable::Instance();
    const auto record = handles.Find<Event>(event);
    const auto publisher = publisherMetadata != nullptr ? handles.Find<std::wstring>(publisherMetadata) : nullptr;
    if (!record || (publisherMetadata != nullptr && !publisher)) {
        return Finish(ERROR_INVALID_HANDLE);
    }
    return Finish(Format(publisher.get(), *record, bufferSize, buffer, bufferUsed));
}

BOOL WINAPI EvtClose(EVT_HANDLE object)
{
    const auto closed = HandleTable::Instance().Close(object);
    if (!closed) {
        return Finish(ERROR_INVALID_HANDLE);
    }
    if (const auto* const subscriber = std::get_if<std::shared_ptr<Subscriber>>(&*closed)) {
        // Whether the platform waits for a running callback is not documented; clients rely on it.
        CloseSubscription(**subscriber, true);
    }
    return Finish(ERROR_SUCCESS);
}

} // extern "C"
