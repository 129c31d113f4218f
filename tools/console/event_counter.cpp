#include "tools/console/event_counter.h"

#include "tools/function_of.h"

#include <cwchar>
#include <utility>

namespace orvel::console {

namespace {

/// Returns functions of the Event Log that the module has loaded: the system's, or the replay log.
const auto& Log()
{
    static const struct {
        HMODULE log = GetModuleHandleW(L"wevtapi.dll");
        decltype(&EvtSubscribe) Subscribe = FunctionOf{log, "EvtSubscribe"};
        decltype(&EvtClose) Close = FunctionOf{log, "EvtClose"};
        decltype(&EvtCreateRenderContext) CreateContext = FunctionOf{log, "EvtCreateRenderContext"};
        decltype(&EvtRender) Render = FunctionOf{log, "EvtRender"};
        decltype(&EvtFormatMessage) Format = FunctionOf{log, "EvtFormatMessage"};
        decltype(&EvtOpenPublisherMetadata) OpenMetadata = FunctionOf{log, "EvtOpenPublisherMetadata"};
    } functions;
    return functions;
}

} // namespace

EventCounter& EventCounter::Create(const MetricConfiguration& metric)
{
    return *new EventCounter(metric.Is(kLaminaMetric));
}

DWORD EventCounter::Subscribe(const MetricConfiguration& metric)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED); // Wine's stub fails without an error
    subscription_ = Log().Subscribe(nullptr, nullptr, metric.channel.c_str(), metric.query.c_str(), nullptr, this,
                                    &OnNotification, EvtSubscribeToFutureEvents);
    return subscription_ != nullptr ? ERROR_SUCCESS : GetLastError();
}

void EventCounter::Stop()
{
    if (subscription_ != nullptr) {
        Log().Close(std::exchange(subscription_, nullptr));
    }
}

DWORD WINAPI EventCounter::OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    if (action == EvtSubscribeActionDeliver) {
        auto& counter = *static_cast<EventCounter*>(context);
        ++counter.counted_[counter.KindOf(event)];
    }
    return ERROR_SUCCESS;
}

EventCounter::Kind EventCounter::KindOf(EVT_HANDLE event)
{
    if (metadata_ == nullptr) {
        metadata_ = Log().OpenMetadata(nullptr, publisher_, nullptr, 0, 0);
    }
    // The sizing call gets a buffer for one character: without one, Windows faults at an empty message.
    std::wstring& message = record_.message;
    message.resize(1);
    DWORD used = 0;
    const auto format = [&] {
        return Log().Format(metadata_, event, 0, 0, nullptr, EvtFormatMessageEvent, static_cast<DWORD>(message.size()),
                            message.data(), &used);
    };
    if (!format() && GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        message.resize(used);
        if (format()) {
            message.resize(wcsnlen(message.c_str(), used));
            return isLamina_ && ClassifyAgentEvent(record_) == AgentEventKind::Other ? OtherKind : Recorded;
        }
    }
    return IsFromPublisher(event) ? WithoutMessage : OtherKind;
}

bool EventCounter::IsFromPublisher(EVT_HANDLE event)
{
    if (context_ == nullptr) {
        const wchar_t* path = L"Event/System/Provider/@Name";
        context_ = Log().CreateContext(1, &path, EvtRenderContextValues);
    }
    EVT_VARIANT values[16] = {}; // large enough for the publisher's name; a longer name is a different one
    DWORD used = 0;
    DWORD count = 0;
    return Log().Render(context_, event, EvtRenderEventValues, sizeof(values), values, &used, &count) &&
           values[0].Type == EvtVarTypeString && _wcsicmp(values[0].StringVal, publisher_) == 0;
}

} // namespace orvel::console
