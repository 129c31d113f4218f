#include "metric/metric.h"

#include "host/com_failure.h"
#include "host/property.h"
#include "metric/call_registry.h"

#include <utility>

namespace orvel {

namespace {

constexpr wchar_t kChannelProperty[] = L"channel";
constexpr wchar_t kQueryProperty[] = L"query";

DWORD WINAPI OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    if (action == EvtSubscribeActionError || action == EvtSubscribeActionDeliver) {
        EnterModule([&] {
            const CallRegistry::Delivery delivery(context);
            if (delivery.metric() != nullptr) {
                static_cast<Subscription*>(context)->callback(event, action);
            }
        });
    }
    return ERROR_SUCCESS;
}

} // namespace

Subscription::~Subscription()
{
    if (handle != nullptr) {
        CallRegistry::Instance().CloseSubscription(handle);
    }
}

HRESULT SubscribeToEvents(Subscription& subscription, const wchar_t* channel, const wchar_t* query,
                          std::function<void(EVT_HANDLE, EVT_SUBSCRIBE_NOTIFY_ACTION)> callback)
{
    subscription.callback = std::move(callback);
    SetLastError(ERROR_SUCCESS);
    subscription.handle = EvtSubscribe(nullptr, nullptr, channel, query, nullptr, &subscription, &OnNotification,
                                       EvtSubscribeToFutureEvents);
    return HresultFromWin32(GetLastError());
}

CMetric::CMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host)
    : name_(std::move(name)), logger_(logger), host_(host)
{
}

HRESULT CMetric::Subscribe(IXMLDOMElement* configuration)
{
    HRESULT hr = GetProperty(configuration, kChannelProperty, channel_);
    if (FAILED(hr)) {
        return hr;
    }
    hr = GetProperty(configuration, kQueryProperty, query_);
    if (FAILED(hr)) {
        return hr;
    }
    CallRegistry::Instance().Add(&subscription_, weak_from_this());
    // A subscription that the Event Log refuses is not a failure: the metric then never sees an event.
    SubscribeToEvents(subscription_, channel_.c_str(), query_.c_str(),
                      [this](EVT_HANDLE event, EVT_SUBSCRIBE_NOTIFY_ACTION action) {
                          if (action != EvtSubscribeActionError) {
                              OnEvent(event);
                          }
                      });
    return S_OK;
}

HRESULT CMetric::Unsubscribe()
{
    if (subscription_.handle != nullptr) {
        CallRegistry::Instance().CloseSubscription(std::exchange(subscription_.handle, nullptr));
    }
    return S_OK;
}

void CMetric::EndDeliveries()
{
    CallRegistry::Instance().Forget(&subscription_);
}

HRESULT CMetric::GetProperty(IXMLDOMElement* configuration, const wchar_t* property, std::wstring& value)
{
    return orvel::GetProperty(configuration, property, logger_.Get(), value);
}

} // namespace orvel
